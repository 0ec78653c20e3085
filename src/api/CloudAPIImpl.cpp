#include "api/CloudAPIImpl.h"

#include "operations/Transfers.h"
#include "transfer/FileDownload.h"
#include "transfer/FileUpload.h"

#include <QEventLoop>
#include <QNetworkProxy>
#include <QPointer>
#include <QUrl>

namespace Velmora {

CloudAPIImpl::CloudAPIImpl()
{
    QObject::connect(&session, &Session::tokenChanged, &sockets, &SocketManager::updateCognitoToken);
    QObject::connect(&session, &Session::userChanged, &session, [this] { grants.forget(); });
    QObject::connect(&session, &Session::loggedOut, &sockets, &SocketManager::unsubscribeFromAll);
    const auto isRenewing = [this] { return session.isRenewing(); };
    rest.setGate(isRenewing);
    QObject::connect(&session, &Session::renewalEnded, &rest, &RestClient::openGate);
    for (SocketManager *each : {&sockets, &followers.sockets()}) {
        each->setGate(isRenewing);
        QObject::connect(&session, &Session::renewalEnded, each, &SocketManager::openGate);
    }
    connectTransfers();
}

// Nothing is sent, and no reply is handled, while the parts die.
CloudAPIImpl::~CloudAPIImpl() { rest.close(); }

void CloudAPIImpl::connectTransfers()
{
    using Manager = FileTransferManager;
    const auto on = [this](auto signal, auto slot) { QObject::connect(&transfers, signal, &transfers, slot); };
    on(&Manager::requestAESKey,
       [this](const std::string &jobId, const EncryptionKeyCB &then) { grants.handleAESKeyRequest(jobId, then); });
    on(&Manager::requestUploadURL,
       [this](const std::string &jobId, const UploadUrlCB &then) { grants.handleUploadURLRequest(jobId, then); });
    on(&Manager::requestDownloadURL,
       [this](const std::string &jobId, const std::string &fileName, const DownloadUrlCB &then) {
           grants.handleDownloadURLRequest(jobId, fileName, then);
       });
    on(&Manager::uploadAddressSpent,
       [this](const std::string &jobId, const QJsonObject &address) { grants.dropUploadAddress(jobId, address); });
    on(&Manager::downloadAddressSpent,
       [this](const std::string &jobId, const std::string &fileName, const QJsonObject &address) {
           grants.dropDownloadAddress(jobId, fileName, address);
       });
    on(&Manager::cloudFileChanged,
       [this](const std::string &jobId, const QString &fileName) { grants.dropFile(jobId, fileName); });
    on(&Manager::requestUploadPostMultiPart, [this](FileUpload *upload, const StorageRequest &request) {
        upload->follow(storage, request, rest.count("Cloud API: Network Request Started with multipart:"));
    });
    on(&Manager::requestUploadPostFile, [this](FileUpload *upload, const StorageRequest &request) {
        upload->follow(storage, request, rest.count("Cloud API: Network Request Started with stream data:"));
    });
    on(&Manager::requestDownloadGetOrPostMultiPart, [this](FileDownload *download, const StorageRequest &request) {
        const bool hasForm = !request.form.isEmpty();
        download->follow(storage, request,
                         rest.count(hasForm ? "Cloud API: Network Request Started with multipart:"
                                            : "Cloud API: Network Request Started:"));
    });
}

void CloudAPIImpl::applyProxy(const ProxyDefinition &definition)
{
    enum Kind { Socks5, Http, System };
    switch (definition.proxyType) {
    case Socks5:
    case Http:
        QNetworkProxy::setApplicationProxy(
            {definition.proxyType == Http ? QNetworkProxy::HttpProxy : QNetworkProxy::Socks5Proxy,
             toQt(definition.proxyHost), static_cast<quint16>(definition.proxyPort), toQt(definition.proxyUser),
             toQt(definition.proxyPassword)});
        break;
    case System:
        QNetworkProxyFactory::setUseSystemConfiguration(true);
        break;
    default:
        break;
    }
}

void CloudAPIImpl::setClientOptions(const ClientOptions &options)
{
    rest.setOptions(options);
    session.setOptions(options);
    sockets.setOptions(options);
    followers.sockets().setOptions(options);
    storage.setOptions(options);
    transfers.setOptions(options);
}

void CloudAPIImpl::setAPIPortal(PortalTarget portal)
{
    rest.setPortal(portal);
    sockets.setAPIPortal(portal);
    followers.sockets().setAPIPortal(portal);
}

int CloudAPIImpl::currentNetworkStatus()
{
    const PumpScope pumping;
    const QPointer<QNetworkReply> reply = rest.sendProbe();
    if (!reply)
        return -1;
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QObject::destroyed, &loop, &QEventLoop::quit); // a callback destroyed this object
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!reply)
        return -1;
    const bool wasFinished = reply->isFinished();
    if (!wasFinished) // the application is quitting, so the loop did not wait
        reply->abort();
    Outcome outcome = rest.take(reply);
    unpackOrSpoil(outcome, rest.answerLimits().body);
    if (wasFinished)
        rest.noteFailure(outcome);
    return outcome.body.isEmpty() ? -1 : 1;
}

void CloudAPIImpl::uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                                   const ResultDone<FileUploadDetails> &onComplete)
{
    const PumpScope pumping;
    QEventLoop loop;
    bool done = false;
    QObject::connect(&transfers, &QObject::destroyed, &loop, &QEventLoop::quit); // by a callback
    const auto complete = [onComplete, &done, waiting = QPointer<QEventLoop>(&loop)](const ApiError &error,
                                                                                     const FileUploadDetails &details) {
        if (onComplete)
            onComplete(error, details);
        if (waiting) {
            done = true;
            waiting->quit();
        }
    };
    Transfers::upload(transfers, file, onProgress, complete);
    if (!done)
        loop.exec();
}

} // namespace Velmora
