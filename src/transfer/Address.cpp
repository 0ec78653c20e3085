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

} // namespace

QString fillTemplate(QString text, const QString &fileName, qint64 fileSize)
{
    return text.replace(QLatin1String("#fileName#"), fileName)
        .replace(QLatin1String("#fileSize#"), QString::number(fileSize))
        .replace(QLatin1String("#urlEncodedFileName#"), QString::fromLatin1(QUrl::toPercentEncoding(fileName)));
}

AddressRequest Detail::requestTo(const QString &uri)
{
    AddressRequest result;
    const QUrl url(uri);
    // Other schemes would make the network layer read or write local files.
    if (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http"))
        result.problem = QStringLiteral("The service gave an address that cannot be used.");
    result.request.setUrl(url);
    return result;
}

void Detail::addHeader(AddressRequest &target, const QString &name, const QString &value)
{
    const auto unsafe = [](const QString &text) {
        return text.contains(QLatin1Char('\r')) || text.contains(QLatin1Char('\n')) || text.contains(QChar());
    };
    if (name.isEmpty() || unsafe(name) || unsafe(value))
        target.problem = QStringLiteral("The service gave an address with a header that cannot be sent.");
    else
        target.request.setRawHeader(name.toUtf8(), value.toUtf8());
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
