#include "common/Render.h"
#include "session/Session.h"

#include <QRegularExpression>

namespace Velmora::Cli {

namespace {

/// What can be done about a status, or what it means where the service says nothing.
QString adviceOn(int status, bool isExplained, bool isStorage)
{
    if (isStorage && (status == 401 || status == 403))
        return QStringLiteral("the service gave an address that its storage does not take, and a new one that it does "
                              "not take either");
    if (isExplained && status < 500 && status != 402 && status != 429)
        return QString();
    switch (status) {
    case 401:
        return QStringLiteral("sign in again with \"velmora login\"");
    case 402:
        return QStringLiteral("the account's core hours do not suffice; see \"velmora balance ACCOUNT\"");
    case 403:
        return QStringLiteral("you may not do that; the job or the account may be another user's");
    case 404:
        return QStringLiteral("there is no such thing at the service");
    case 413:
        return QStringLiteral("that is more than the service takes");
    case 429:
        return QStringLiteral("too many requests; try again in a while");
    case 507:
        return QStringLiteral("the storage of the service is full, or the quota is used up");
    default:
        return status >= 500 ? QStringLiteral("the service has a fault; try again in a while") : QString();
    }
}

/// Without the network layer's own words, which are an address or say nothing.
QString reasonOf(const ApiError &error)
{
    const QString text = shown(plainText(error.errorMessage)).trimmed();
    static const QRegularExpression address(QStringLiteral("^Error transferring https?://"));
    if (address.match(text).hasMatch())
        return QString();
    if (error.errorCode != 400 ||
        (text != QLatin1String("Unknown error") && text != QLatin1String("Connection closed")))
        return text;
    return QStringLiteral("the connection broke before an answer came");
}

} // namespace

QString errorText(const ApiError &error)
{
    const QString title = shown(plainText(error.errorTitle));
    const QString reason = reasonOf(error);
    const QString status = QStringLiteral("status %1").arg(error.errorCode);
    const bool isNamed = reason.contains(status);
    const bool isStorage =
        title == QLatin1String("File Failed to Upload") || title == QLatin1String("Unable to download file");
    const QString advice = adviceOn(error.errorCode, !reason.isEmpty() && !isNamed, isStorage);
    QString text = title.isEmpty() || reason.isEmpty() ? title + reason : title + QStringLiteral(": ") + reason;
    // What a transfer met on this machine, or on the way, has this status too.
    const bool isTransfer = isStorage || title == QLatin1String("Unable to write to target file") ||
                            title == QLatin1String("Error Requesting Encryption Key") ||
                            title == QLatin1String("Error Transferring Files");
    if (isNamed && text.endsWith(QLatin1Char('.')))
        text.chop(1);
    if (!isNamed && (error.errorCode != 400 || !isTransfer))
        text += QStringLiteral(" (%1)").arg(status);
    return advice.isEmpty() ? text : text + QStringLiteral("; ") + advice;
}

} // namespace Velmora::Cli
