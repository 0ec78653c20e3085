#pragma once

#include "storage/Request.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace Velmora {

/// A request to a pre-signed address, as the portal describes it: "uri", "method", "headers",
/// "formFields".
struct AddressRequest {
    StorageRequest request;
    QString problem; ///< why it cannot be sent; empty when it can
};

/// Replaces the marks that the portal leaves in upload addresses by the file's own values.
QString fillTemplate(QString text, const QString &fileName, qint64 fileSize);
/// The same in a "uri", where parts of the name must not end the path.
QString fillUri(QString text, const QString &fileName, qint64 fileSize);

/// The request as it stands, and with the marks of an upload filled.
AddressRequest addressRequest(const QJsonObject &address);
AddressRequest addressRequest(const QJsonObject &address, const QString &fileName, qint64 fileSize);

/// A multipart form: the fields in key order, then optionally one file between `head` and `tail`.
struct MultipartForm {
    QByteArray contentType;
    QByteArray head;
    QByteArray tail;
};

MultipartForm multipartForm(const QJsonObject &formFields);
MultipartForm multipartForm(const QJsonObject &formFields, const QString &fileName);

} // namespace Velmora
