#include "transfer/DownloadObjects.h"

#include "base/DiskFile.h"
#include "base/Later.h"
#include "model/Json.h"
#include "transfer/Join.h"
#include "transfer/PieceName.h"
#include "transfer/Titles.h"

#include <QDir>
#include <QFileInfo>

#include <map>

namespace Velmora {

namespace {

ApiError stitchFailure()
{
    return {400, Titles::DownloadFailed, "We were unable to stitch the requested file back together from its chunks."};
}

QString absoluteTarget(const FileDownloadDetails &file)
{
    return QFileInfo(QDir::fromNativeSeparators(toQt(file.localFileLocation))).absoluteFilePath();
}

} // namespace

DownloadObjects::DownloadObjects(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                                 const ResultDone<FileDownloadDetails> &onComplete)
    : m_details(file)
    , m_onProgress(onProgress)
    , m_onComplete(onComplete)
    , m_target(QDir::cleanPath(absoluteTarget(file)))
    , m_folder(QFileInfo(m_target).absolutePath())
{
    m_paths.insert(pathKey(m_target));
}

DownloadObjects::~DownloadObjects()
{
    m_work.stopAndWait();
    if (!m_finished) {
        for (const auto &piece : m_pieces)
            piece->discard();
    }
}

bool DownloadObjects::hasTarget(const FileDownloadDetails &file) const
{
    return pathKey(QDir::cleanPath(absoluteTarget(file))) == pathKey(m_target);
}

bool DownloadObjects::isFor(const FileDownloadDetails &file) const
{
    if (hasTarget(file))
        return true;
    return pathKey(QFileInfo(absoluteTarget(file)).absolutePath()) == pathKey(m_folder) &&
           file.cloudFileDetails.jobId == m_details.cloudFileDetails.jobId &&
           file.cloudFileDetails.fileName == m_details.cloudFileDetails.fileName;
}

bool DownloadObjects::prepare(const QJsonArray &chunks, const QByteArray &key, const QSet<QString> &taken)
{
    for (const QJsonValue &chunk : chunks) {
        m_pieces.push_back(std::make_unique<FileDownload>(m_folder, m_target, chunk.toObject(), key));
        m_paths.insert(pathKey(m_pieces.back()->path()));
    }
    if (!m_paths.intersects(taken))
        return true;
    m_pieces.clear();
    m_paths = {pathKey(m_target)};
    return false;
}

void DownloadObjects::begin()
{
    if (m_details.localFileLocation.empty() || QFileInfo(m_target).isDir()) {
        fail({400, Titles::DownloadNotWritten, "The target is no file name: \"" + m_details.localFileLocation + "\"."});
        return;
    }
    if (m_pieces.empty()) {
        join();
        return;
    }
    QSet<QString> names;
    for (const auto &piece : m_pieces)
        names.insert(pathKey(piece->path()));
    if (names.size() != static_cast<int>(m_pieces.size())) { // two pieces of one name would mix in one file
        fail(stitchFailure());
        return;
    }
    for (const auto &piece : m_pieces) {
        connect(piece.get(), &FileDownload::downloadProgress, this, &DownloadObjects::onChunkProgress);
        connect(piece.get(), &FileDownload::downloadComplete, this, &DownloadObjects::onChunkComplete);
    }
    for (const auto &piece : m_pieces)
        piece->start();
}

void DownloadObjects::onChunkProgress()
{
    qint64 received = 0;
    for (const auto &piece : m_pieces)
        received += piece->bytesReceived();
    if (received <= m_reported)
        return;
    m_reported = received;
    callLater(this, m_onProgress, m_details, static_cast<std::int64_t>(received));
}

void DownloadObjects::onChunkComplete(const ApiError &error)
{
    ++m_finishedPieces;
    if (error.errorCode >= 300 && !m_failed) {
        m_failed = true;
        m_failure = error;
        for (const auto &piece : m_pieces)
            piece->stop();
    }
    if (m_finishedPieces < m_pieces.size())
        return;
    if (m_failed)
        finish(m_failure);
    else
        join();
}

void DownloadObjects::join()
{
    std::map<int, QString> ordered;
    for (const auto &piece : m_pieces) {
        if (const int number = pieceNumber(piece->fileName()); number >= 0)
            ordered[number] = piece->path();
    }
    if (ordered.empty() || ordered.size() != m_pieces.size()) {
        fail(stitchFailure());
        return;
    }
    if (!isSafeFileName(baseName(withoutPieceSuffix(m_pieces.front()->fileName())))) {
        fail({400, Titles::DownloadNotWritten, "The service gave the file a name that is not a file name."});
        return;
    }
    std::vector<QString> paths;
    for (const auto &[number, path] : ordered)
        paths.push_back(path);
    const QString growing =
        m_folder + QStringLiteral("/UNCONFIRMED_JOIN.%1.VELMORA").arg(QFileInfo(m_target).fileName());
    const auto result = std::make_shared<JoinResult>();
    m_work.start([result, paths, growing, target = m_target](
                     const std::atomic<bool> &stop) { *result = joinPieces(paths, growing, target, stop); },
                 [this, result] {
                     if (!result->joined)
                         fail(stitchFailure());
                     else if (!result->renameProblem.isEmpty())
                         fail({400, Titles::DownloadNotWritten, result->renameProblem.toStdString()});
                     else
                         finish({200, Titles::DownloadSucceeded, {}});
                 });
}

void DownloadObjects::fail(const ApiError &error) { finish(error); }

void DownloadObjects::finish(const ApiError &error)
{
    m_finished = true;
    later(this, [this, error] { Q_EMIT downloadComplete(error); });
}

} // namespace Velmora
