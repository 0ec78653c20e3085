#include "transfer/DownloadObjects.h"

#include "base/DiskFile.h"
#include "base/Later.h"
#include "model/Json.h"
#include "storage/WorkingFile.h"
#include "transfer/PieceName.h"
#include "transfer/Titles.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace Velmora {

namespace {

constexpr std::size_t mostReceiving = 6; // pieces of one file
constexpr std::size_t mostAhead = 32;    // of the joined file: each is an open file
constexpr int finishers = 16;            // most of their time they wait for a disk
constexpr int appenders = 4;

QString absoluteTarget(const FileDownloadDetails &file)
{
    return QFileInfo(QDir::fromNativeSeparators(toQt(file.localFileLocation))).absoluteFilePath();
}

ApiError notWritten(const std::string &reason) { return {400, Titles::DownloadNotWritten, reason}; }

} // namespace

DownloadPools::DownloadPools()
{
    finishing.setMaxThreadCount(finishers);
    appending.setMaxThreadCount(appenders);
}

DownloadObjects::DownloadObjects(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                                 const ResultDone<FileDownloadDetails> &onComplete, DownloadPools &pools,
                                 const RetryPolicy &policy)
    : m_details(file)
    , m_onProgress(onProgress)
    , m_onComplete(onComplete)
    , m_pools(pools)
    , m_policy(policy)
    , m_retry(policy)
    , m_target(QDir::cleanPath(absoluteTarget(file)))
    , m_targetKey(pathKey(m_target))
    , m_folder(QFileInfo(m_target).absolutePath())
    , m_appending(&pools.appending)
    , m_moving(&pools.finishing)
{
}

DownloadObjects::~DownloadObjects()
{
    m_moving.stopAndWait();
    m_appending.stopAndWait();
    std::vector<std::shared_ptr<WorkingFile>> files{m_joined};
    for (const auto &piece : m_pieces)
        files.push_back(piece->file());
    m_pieces.clear(); // nobody writes any more
    for (const auto &file : files) {
        if (file && m_finished)
            file->close();
        else if (file)
            file->remove();
    }
}

bool DownloadObjects::canBeCancelled()
{
    m_moving.stopAndWait();
    if (!m_joined || !m_joined->isInPlace())
        return true;
    finish({200, Titles::DownloadSucceeded, {}});
    return false;
}

QString DownloadObjects::targetKey(const FileDownloadDetails &file)
{
    return pathKey(QDir::cleanPath(absoluteTarget(file)));
}

void DownloadObjects::failOrTryAgain(const GrantError &error, std::function<void()> again)
{
    if (!error.mayPass || !m_retry.start(std::move(again)))
        finish(error);
}

void DownloadObjects::prepare(const Grant &grant, const QByteArray &key)
{
    m_key = key;
    for (const QJsonValue &chunk : grant.address.value(QLatin1String("chunks")).toArray())
        m_pieces.push_back(std::make_unique<FileDownload>(chunk.toObject(), grant, &m_pools.finishing, m_policy));
    std::stable_sort(m_pieces.begin(), m_pieces.end(),
                     [](const auto &left, const auto &right) { return left->number() < right->number(); });
}

void DownloadObjects::begin()
{
    if (m_details.localFileLocation.empty() || QFileInfo(m_target).isDir()) {
        finish(notWritten("The target is no file name: \"" + m_details.localFileLocation + "\"."));
        return;
    }
    if (const ApiError problem = problemOfNames(); problem.errorCode >= 300) {
        finish(problem);
        return;
    }
    m_joined = std::make_shared<WorkingFile>(m_folder, baseName(m_pieces.front()->fileName()));
    for (const auto &piece : m_pieces) {
        connect(piece.get(), &FileDownload::downloadProgress, this, &DownloadObjects::onChunkProgress);
        connect(piece.get(), &FileDownload::downloadComplete, this, &DownloadObjects::onChunkComplete);
    }
    startPieces();
}

// Before anything is fetched: the numbers are 0, 1, 2 … or 1, 2, 3 …, and no name leads out of the folder.
ApiError DownloadObjects::problemOfNames() const
{
    int expected = m_pieces.empty() ? -1 : m_pieces.front()->number();
    bool isWhole = expected == 0 || expected == 1;
    for (const auto &piece : m_pieces)
        isWhole = isWhole && piece->number() == expected++;
    if (!isWhole)
        return {400, Titles::DownloadFailed,
                "We were unable to stitch the requested file back together from its chunks."};
    for (const auto &piece : m_pieces) {
        const QString name = baseName(piece->fileName());
        if (!isSafeFileName(name) || !isSafeFileName(withoutPieceSuffix(name)))
            return notWritten("The service gave a piece the name \"" + piece->fileName().toStdString() +
                              "\", which is not a file name.");
    }
    return {200, {}, {}};
}

void DownloadObjects::startPieces()
{
    const qint64 expected = m_details.cloudFileDetails.fileSize / static_cast<qint64>(m_pieces.size());
    const auto isAllowed = [&] { return m_receiving < mostReceiving && m_started < m_appended + mostAhead; };
    while (!m_failed && m_started < m_pieces.size() && isAllowed()) {
        const bool isNext = m_started == m_appended && !m_working;
        FileDownload &piece = *m_pieces[m_started++];
        ++m_receiving;
        piece.start(isNext ? m_joined : std::make_shared<WorkingFile>(m_folder, baseName(piece.fileName())), m_key,
                    expected);
    }
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
    --m_receiving;
    if (error.errorCode >= 300)
        failOnce(error);
    goOn();
}

void DownloadObjects::failOnce(const ApiError &error)
{
    if (m_failed)
        return;
    m_failed = true;
    m_failure = error;
    for (std::size_t i = 0; i < m_started; ++i)
        m_pieces[i]->stop();
}

// Whatever has ended, this is what follows.
void DownloadObjects::goOn()
{
    if (m_failed) {
        if (m_receiving == 0 && !m_working)
            finish(m_failure);
        return;
    }
    while (!m_working && m_appended < m_started && m_pieces[m_appended]->isReady()) {
        if (m_pieces[m_appended]->file() == m_joined)
            ++m_appended;
        else
            append();
    }
    startPieces();
    if (m_appended == m_pieces.size() && !m_working)
        moveToTarget();
}

void DownloadObjects::append()
{
    work(
        m_appending,
        [whole = m_joined, piece = m_pieces[m_appended]->file()](const std::atomic<bool> &stop) {
            return whole->append(*piece, stop) ? QString() : whole->problem();
        },
        [this] {
            ++m_appended;
            goOn();
        });
}

void DownloadObjects::moveToTarget()
{
    QStringList names;
    for (const auto &piece : m_pieces)
        names.append(baseName(piece->fileName()));
    work(
        m_moving,
        [whole = m_joined, folder = m_folder, target = m_target, names](const std::atomic<bool> &stop) {
            for (int i = 1; i < names.size(); ++i) // those that needed no file now had one, perhaps, in another try
                WorkingFile::removeAbandoned(folder, names[i]);
            return whole->moveTo(target, stop) ? QString() : whole->problem();
        },
        [this] {
            finish({200, Titles::DownloadSucceeded, {}});
        });
}

// Runs a job on the joined file, which says why it failed. `then` runs only if it did not.
void DownloadObjects::work(PoolWork &on, Work job, std::function<void()> then)
{
    m_working = true;
    const auto problem = std::make_shared<QString>();
    on.start([problem, job = std::move(job)](const std::atomic<bool> &stop) { *problem = job(stop); },
             [this, problem, then = std::move(then)] {
                 m_working = false;
                 if (m_failed || !problem->isEmpty()) {
                     failOnce(notWritten(problem->toStdString()));
                     goOn();
                     return;
                 }
                 then();
             });
}

void DownloadObjects::finish(const ApiError &error)
{
    m_finished = true;
    later(this, [this, error] { Q_EMIT downloadComplete(error); });
}

} // namespace Velmora
