#include "transfer/JobGrants.h"

#include "base/Log.h"
#include "crypto/Cipher.h"
#include "transfer/PieceName.h"
#include "transfer/Retry.h"
#include "transfer/Titles.h"

#include <QDateTime>
#include <QJsonArray>

namespace Velmora {

namespace {

QString downloadKey(const QString &jobId, const QString &fileName)
{
    return QStringLiteral("%1/%2").arg(jobId, fileName);
}

// The message of a refusal is the service's alone. The network layer's text is for a broken connection.
GrantError grantError(const Outcome &outcome, const char *title)
{
    return {outcome.isRefused() ? operationError(outcome, title) : transferError(outcome, title),
            outcome.status == 0 || isPassing(outcome.status)};
}

const GrantError granted{{200, {}, {}}};

// What changes when a file does.
QString versionOf(const QJsonValue &file)
{
    QStringList parts;
    for (const char *field : {"fileSize", "fileDate", "fileHash"})
        parts += file[QLatin1String(field)].toVariant().toString();
    return parts.join(QLatin1Char(' '));
}

} // namespace

JobGrants::JobGrants(RestClient &rest)
    : m_rest(rest)
    , m_clock(QDateTime::currentMSecsSinceEpoch)
{
}

void JobGrants::forget()
{
    ++m_user;
    m_keys.clear();
    m_uploadAddresses = {};
    m_downloadAddresses = {};
}

void JobGrants::handleAESKeyRequest(const std::string &jobId, const EncryptionKeyCB &onCompleteCB)
{
    const QString job = toQt(jobId);
    if (const QByteArray key = m_keys.value(job); !key.isEmpty()) {
        onCompleteCB(granted, key);
        return;
    }
    const JobOfUser wanted{m_user, job};
    m_keyRequests.join(wanted, onCompleteCB, [&] {
        VELMORA_LOG() << "in CloudAPI::getEncryptionKey(): ZRV call being made for encryption key";
        const Request request{Endpoints::JobKey, Verb::Post, bodyOf({{"jobId", jobId}})};
        return m_rest.exchange(request, [this, wanted](const Outcome &outcome) {
            GrantError error = grantError(outcome, Endpoints::JobKey.title);
            const QJsonValue reply = QJsonDocument::fromJson(outcome.body).object().value(QLatin1String("key"));
            const auto decoded = QByteArray::fromBase64Encoding(
                reply[QLatin1String("plaintextKey")].toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
            const bool usable = decoded && !(*decoded).isEmpty() && (*decoded).size() <= cipherKeySize;
            if (error.errorCode < 300 && !usable)
                error = {{400, Endpoints::JobKey.title, "The service gave no usable encryption key for the job."}};
            const QByteArray key = error.errorCode < 300 ? *decoded : QByteArray();
            if (wanted.first == m_user)
                m_keys.insert(wanted.second, key);
            for (const EncryptionKeyCB &waiter : m_keyRequests.finish(wanted))
                waiter(error, key);
        });
    });
}

void JobGrants::handleUploadURLRequest(const std::string &jobId, const UploadUrlCB &onCompleteCB)
{
    const QString job = toQt(jobId);
    VELMORA_LOG() << "in CloudAPI::handleUploadURLRequest() for" << job;
    if (const auto cached = m_uploadAddresses.find(job, m_clock())) {
        onCompleteCB(granted, grantOf(*cached));
        return;
    }
    VELMORA_LOG() << "Did not find cached upload request for job" << job;
    const JobOfUser wanted{m_user, job};
    m_uploadAddressRequests.join(wanted, onCompleteCB, [&] {
        const Request request{Endpoints::JobFilesUpload, Verb::Get, {}, QStringLiteral("/uploadUrl/%1").arg(job)};
        return m_rest.exchange(request, [this, wanted](const Outcome &outcome) {
            const GrantError error = grantError(outcome, Endpoints::JobFilesUpload.title);
            const AddressCache::Entry entry{QJsonDocument::fromJson(outcome.body).object(), m_clock()};
            if (error.errorCode < 300 && entry.address.contains(QLatin1String("uri")) && wanted.first == m_user)
                m_uploadAddresses.store(wanted.second, entry.address, entry.stored);
            for (const UploadUrlCB &waiter : m_uploadAddressRequests.finish(wanted))
                waiter(error, grantOf(entry));
        });
    });
}

void JobGrants::handleDownloadURLRequest(const std::string &jobId, const std::string &fileName,
                                         const DownloadUrlCB &onCompleteCB)
{
    const QString job = toQt(jobId);
    const QString key = downloadKey(job, toQt(fileName));
    VELMORA_LOG() << "in CloudAPI::handleDownloadURLRequest() for" << key;
    if (answerDownload(m_downloadAddresses, key, onCompleteCB))
        return;
    VELMORA_LOG() << "Did not find cached download requests for job" << job;
    const JobOfUser wanted{m_user, job};
    m_listings.join(wanted, {onCompleteCB, m_user, key}, [&] {
        VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this job: " << job;
        const auto then = [this, wanted, job](const Outcome &outcome, const auto & /*files*/, AddressCache &found) {
            const Endpoint &titled = outcome.isRefused() ? Endpoints::JobFilesList : Endpoints::JobFilesUpload;
            const GrantError error = grantError(outcome, titled.title);
            for (const DownloadWaiter &waiter : m_listings.finish(wanted)) {
                if (error.errorCode >= 300)
                    waiter(error, {});
                else if (!answerDownload(found, waiter.key, waiter))
                    waiter({{404, Titles::DownloadFailed,
                             waiter.key.mid(job.size() + 1).toStdString() + " is not among the files of job " +
                                 job.toStdString() + '.'}},
                           {});
            }
        };
        return requestFileList(QStringLiteral("/%1").arg(job), true, {}, then);
    });
}

JobGrants::FileList JobGrants::readFileList(const QByteArray &body, bool showAllFiles, const MakeResult &make)
{
    const QJsonArray array = QJsonDocument::fromJson(body).array();
    FileList list;
    for (const QJsonValue &file : array) {
        const QJsonValue chunks = file[QLatin1String("downloadRequest")];
        if (chunks.isArray())
            list.addresses.insert(
                downloadKey(file[QLatin1String("jobId")].toString(), file[QLatin1String("fileName")].toString()),
                {{{QLatin1String("chunks"), chunks}, {QLatin1String("version"), versionOf(file)}}});
    }
    auto files = readReplyList<CloudFile>(array);
    if (!showAllFiles)
        files.remove_if([](const CloudFile &file) { return file.fileName.find("/rtg/") != std::string::npos; });
    list.shown = files.size();
    if (make)
        list.result = make(std::move(files));
    return list;
}

RestClient::Abort JobGrants::requestFileList(const QString &suffix, bool showAllFiles, const MakeResult &make,
                                             const FileListHandler &then)
{
    const auto read = [=](const QByteArray &body) { return readFileList(body, showAllFiles, make); };
    return m_rest.exchange({Endpoints::JobFilesList, Verb::Get, {}, suffix}, read,
                           [this, then, user = m_user](const Outcome &outcome, const std::shared_ptr<FileList> &list) {
                               AddressCache &found = user == m_user ? m_downloadAddresses : list->ofAnotherUser;
                               if (!outcome.isRefused()) {
                                   VELMORA_LOG() << "Received list of" << list->shown << "files.";
                                   remember(list->addresses, user, found);
                               }
                               then(outcome, list, found);
                           });
}

void JobGrants::remember(AddressCache::Entries &files, int user, AddressCache &found)
{
    const qint64 now = m_clock();
    if (const int removed = found.take(files, now))
        VELMORA_LOG() << "Cleared" << removed << "file download requests from cache.";
    // Downloads that wait for a listing of their own may find what they need in this one.
    const auto isKnown = [&](const DownloadWaiter &waiter) {
        return waiter.user == user && found.find(waiter.key, now).has_value();
    };
    for (const DownloadWaiter &waiter : m_listings.takeIf(isKnown))
        answerDownload(found, waiter.key, waiter);
}

Grant JobGrants::grantOf(const AddressCache::Entry &entry) const
{
    return {entry.address, [this, stored = entry.stored] { return AddressCache::timeLeft(stored, m_clock()); }};
}

bool JobGrants::answerDownload(AddressCache &addresses, const QString &key, const DownloadUrlCB &waiter)
{
    const auto found = addresses.find(key, m_clock());
    if (found)
        waiter(granted, grantOf(*found));
    return found.has_value();
}

void JobGrants::dropUploadAddress(const std::string &jobId, const QJsonObject &address)
{
    m_uploadAddresses.remove(toQt(jobId), address);
}

void JobGrants::dropDownloadAddress(const std::string &jobId, const std::string &fileName, const QJsonObject &address)
{
    m_downloadAddresses.remove(downloadKey(toQt(jobId), toQt(fileName)), address);
}

void JobGrants::dropFile(const std::string &jobId, const QString &fileName)
{
    const QString job = downloadKey(toQt(jobId), {}), name = QLatin1Char('/') + baseName(fileName);
    m_downloadAddresses.removeIf([&](const QString &key, const AddressCache::Entry &) {
        return key.endsWith(name) && key.startsWith(job); // the former is seldom true, and quick
    });
}

} // namespace Velmora
