#include "storage/Request.h"

#include <QUrl>

#include <algorithm>

namespace Velmora {

bool StorageRequest::hasHeader(const QByteArray &name) const
{
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto &header) { return header.first.compare(name, Qt::CaseInsensitive) == 0; });
}

void StorageRequest::setHeader(const QByteArray &name, const QByteArray &value)
{
    const auto isNamed = [&](const auto &header) { return header.first.compare(name, Qt::CaseInsensitive) == 0; };
    headers.erase(std::remove_if(headers.begin(), headers.end(), isNamed), headers.end());
    headers.emplace_back(name, value);
}

std::optional<Target> targetOf(const QByteArray &address)
{
    const QByteArray trimmed = address.trimmed();
    const int colon = trimmed.indexOf("://");
    const QByteArray scheme = trimmed.left(std::max(colon, 0)).toLower();
    if (scheme != "https" && scheme != "http")
        return {};
    const auto first = trimmed.begin() + colon + 3;
    const auto end = std::find_if(first, trimmed.end(), [](char each) { return QByteArray("/?#").contains(each); });
    const QUrl server(QString::fromUtf8(scheme + "://" + QByteArray(first, int(end - first))));
    if (!server.isValid() || server.host().isEmpty() || !server.userInfo().isEmpty())
        return {};

    Target target{server.toEncoded(), {}};
    for (auto next = end; next != trimmed.end() && *next != '#'; ++next) {
        const auto byte = static_cast<unsigned char>(*next);
        if (byte > 0x20 && byte < 0x7f)
            target.path += *next;
        else
            target.path += '%' + QByteArray(1, *next).toHex().toUpper();
    }
    if (!target.path.startsWith('/'))
        target.path.prepend('/');
    return target;
}

} // namespace Velmora
