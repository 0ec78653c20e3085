#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QString>

namespace Velmora {

/// A request to a pre-signed address, as the portal describes it: "uri", "method", "headers",
/// "formFields".
struct AddressRequest {
    QNetworkRequest request;
    QString problem; ///< why it cannot be sent; empty when it can
};

/// Replaces the marks that the portal leaves in upload addresses by the file's own values.
QString fillTemplate(QString text, const QString &fileName, qint64 fileSize);

/// @param fill  applied to "uri" and to header values
template <class Fill> AddressRequest addressRequest(const QJsonObject &address, Fill fill);

/// A multipart form: the fields in key order, then optionally one file between `head` and `tail`.
struct MultipartForm {
    QByteArray contentType;
    QByteArray head;
    QByteArray tail;
};

MultipartForm multipartForm(const QJsonObject &formFields);
MultipartForm multipartForm(const QJsonObject &formFields, const QString &fileName);

namespace Detail {
AddressRequest requestTo(const QString &uri);
void addHeader(AddressRequest &target, const QString &name, const QString &value);
} // namespace Detail

template <class Fill> AddressRequest addressRequest(const QJsonObject &address, Fill fill)
{
    AddressRequest result = Detail::requestTo(fill(address.value(QLatin1String("uri")).toString()));
    const QJsonObject headers = address.value(QLatin1String("headers")).toObject();
    for (auto header = headers.begin(); header != headers.end(); ++header)
        Detail::addHeader(result, header.key(), fill(header.value().toString()));
    return result;
}

} // namespace Velmora
