#pragma once

#include "base/PoolWork.h"
#include "storage/StorageClient.h"
#include "transfer/Retry.h"
#include "transfer/Waiter.h"

#include <velmora/Records.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

namespace Velmora {

class Sink;
class WorkingFile;

/// One piece of a download.
///
///     start() ─ signalFetch ─▶ receiving ── follow() … answered ─▶ writing what is left (pool) ─▶ ready
///             ─ too old ─ signalAddressWanted ─▶ waiting for an address ── renew() ─ signalFetch ─▶ …
///
/// Every state may fail, or be ended by `stop()`. Either way `downloadComplete` is emitted once, from a clean stack.
/// What may go better next time begins again after a pause, as often as the policy says. It goes on behind the bytes
/// that have come, when the storage named their version; with another address, when this one was refused.
/// Destruction cancels the request and waits for what is written right now, without a signal.
class FileDownload : public QObject {
    Q_OBJECT
public:
    /// @param chunk  one of the pieces of `grant`
    /// @param pool   for the work that ends the piece
    FileDownload(const QJsonObject &chunk, const Grant &grant, QThreadPool *pool, const RetryPolicy &policy);
    ~FileDownload() override;

    const QString &fileName() const { return m_fileName; } ///< as the service gave it
    int number() const { return m_number; }                ///< -1: none
    qint64 bytesReceived() const { return m_received; }    ///< encrypted bytes
    bool isReady() const { return m_ready; }
    /// Where the piece goes; null before the start.
    const std::shared_ptr<WorkingFile> &file() const { return m_file; }

    /// @param file      used by nobody else until the piece is complete
    /// @param expected  bytes, about
    void start(std::shared_ptr<WorkingFile> file, const QByteArray &key, qint64 expected);
    /// The addresses of the file's pieces, which were wanted.
    void renew(const GrantError &error, const Grant &grant);
    /// Starts the request and follows it to its end. @param counted  released when the request has ended
    void follow(StorageClient &storage, const StorageRequest &request, std::shared_ptr<void> counted);
    /// Another piece has failed: finish, with `downloadComplete`. Does nothing for a piece that has ended.
    void stop();

Q_SIGNALS:
    void signalAddressWanted();
    /// The storage refused one of them, or they grew too old.
    void signalAddressSpent(const QJsonObject &address);
    void signalFetch(const StorageRequest &request);
    void downloadProgress();
    /// Code 200 when the piece is ready, otherwise the failure.
    void downloadComplete(const ApiError &error);

private:
    void fetch();
    void send();
    void onReceived(qint64 bytes);
    void onAnswered(const StorageAnswer &answer);
    void onWritten();
    void release();
    void failBySink();
    bool tryAgain();
    void finish(const ApiError &error);

    QJsonObject m_chunk;
    Grant m_grant;
    const QString m_fileName;
    const int m_number;
    Retry m_retry;
    std::shared_ptr<WorkingFile> m_file;
    std::shared_ptr<Sink> m_sink;
    QByteArray m_etag; ///< of the bytes in the sink, if it is a strong one
    qint64 m_expected = 0;
    bool m_isSpent = false;            ///< the address
    bool m_hasWaited = false;          ///< for its turn, with an address that grew too old
    QPointer<StorageClient> m_storage; ///< while a request is under way
    StorageClient::Id m_request = 0;
    std::shared_ptr<void> m_counted;
    qint64 m_received = 0;
    bool m_ended = false; ///< the outcome is certain
    bool m_ready = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
