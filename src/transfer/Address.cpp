#include "transfer/Address.h"

#include "model/Json.h"

#include <QUrl>
#include <QUuid>

namespace Velmora {

namespace {

// Quotes and line ends would end the quoted name, or the part's head, early.
QByteArray quoted(const QString &name)
{
    QByteArray text = name.toUtf8();
    text.replace('"', "%22").replace('\r', "%0D").replace('\n', "%0A");
    return '"' + text + '"';
}

bool isUnsafe(const QString &text)
{
    return text.contains(QLatin1Char('\r')) || text.contains(QLatin1Char('\n')) || text.contains(QChar());
}

template <class FillUri, class FillHeader>
AddressRequest requestOf(const QJsonObject &address, FillUri uri, FillHeader value)
{
    AddressRequest made;
    made.request.address = uri(address.value(QLatin1String("uri")).toString()).toUtf8();
    // Other schemes would make the network layer read or write local files.
    if (!targetOf(made.request.address))
        made.problem = QStringLiteral("The service gave an address that cannot be used.");
    const QJsonObject headers = address.value(QLatin1String("headers")).toObject();
    for (auto header = headers.begin(); header != headers.end(); ++header) {
        const QString text = value(header.value().toString());
        if (header.key().isEmpty() || isUnsafe(header.key()) || isUnsafe(text))
            made.problem = QStringLiteral("The service gave an address with a header that cannot be sent.");
        else
            made.request.headers.emplace_back(header.key().toUtf8(), text.toUtf8());
    }
    return made;
}

} // namespace

QString fillTemplate(QString text, const QString &fileName, qint64 fileSize)
{
    return text.replace(QLatin1String("#fileName#"), fileName)
        .replace(QLatin1String("#fileSize#"), QString::number(fileSize))
        .replace(QLatin1String("#urlEncodedFileName#"), QString::fromLatin1(QUrl::toPercentEncoding(fileName)));
}

QString fillUri(QString text, const QString &fileName, qint64 fileSize)
{
    QString name = fileName;
    name.replace(QLatin1Char('%'), QLatin1String("%25"))
        .replace(QLatin1Char('#'), QLatin1String("%23"))
        .replace(QLatin1Char('?'), QLatin1String("%3F"));
    return fillTemplate(text.replace(QLatin1String("#fileName#"), name), fileName, fileSize);
}

AddressRequest addressRequest(const QJsonObject &address)
{
    const auto same = [](const QString &text) { return text; };
    return requestOf(address, same, same);
}

AddressRequest addressRequest(const QJsonObject &address, const QString &fileName, qint64 fileSize)
{
    return requestOf(
        address, [&](const QString &text) { return fillUri(text, fileName, fileSize); },
        [&](const QString &text) { return fillTemplate(text, fileName, fileSize); });
}

MultipartForm multipartForm(const QJsonObject &formFields)
{
    const QByteArray boundary = "velmora-" + QUuid::createUuid().toByteArray(QUuid::Id128);
    MultipartForm form;
    form.contentType = "multipart/form-data; boundary=\"" + boundary + '"';
    for (auto field = formFields.begin(); field != formFields.end(); ++field) {
        form.head += "--" + boundary + "\r\nContent-Disposition: form-data; name=" + quoted(field.key()) + "\r\n\r\n" +
                     field.value().toString().toUtf8() + "\r\n";
    }
    form.tail = "--" + boundary + "--\r\n";
    return form;
}

MultipartForm multipartForm(const QJsonObject &formFields, const QString &fileName)
{
    MultipartForm form = multipartForm(formFields);
    const QByteArray delimiter = form.tail.chopped(4); // without the closing dashes and line end
    form.head +=
        delimiter + "\r\nContent-Disposition: form-data; name=\"file\"; filename=" + quoted(fileName) + "\r\n\r\n";
    form.tail.prepend("\r\n");
    return form;
}

} // namespace Velmora
