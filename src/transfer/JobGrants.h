#pragma once

#include "transfer/AddressCache.h"
#include "transfer/SingleFlight.h"
#include "transfer/Waiter.h"
#include "transport/RestClient.h"

#include <QMap>
#include <QPair>
#include <QString>

#include <functional>
#include <list>
#include <memory>

namespace Velmora {

/// What the portal grants for the transfers of a job: its key, the address for uploads, the addresses of its files.
/// Keys are kept, addresses for 30 minutes. Transfers that need the same thing at the same time share one request.
///
/// Owned by the engine, used on its thread.
class JobGrants {
public:
    explicit JobGrants(RestClient &rest);

    void handleAESKeyRequest(const std::string &jobId, const EncryptionKeyCB &onCompleteCB);
    void handleUploadURLRequest(const std::string &jobId, const UploadUrlCB &onCompleteCB);
    void handleDownloadURLRequest(const std::string &jobId, const std::string &fileName,
                                  const DownloadUrlCB &onCompleteCB);

    /// The storage refused it: the next transfer asks for another one.
    void dropUploadAddress(const std::string &jobId, const QJsonObject &address);
    void dropDownloadAddress(const std::string &jobId, const std::string &fileName, const QJsonObject &address);
    /// Files of this name, in whatever folder of the job, are not what they were: their addresses are dropped.
    void dropFile(const std::string &jobId, const QString &fileName);

    /// Forgets all keys and addresses. What is under way for them completes for those who wait, and is not kept.
    void forget();

    /// Lists files, and keeps their addresses, those of hidden files included. @param suffix  which files, appended to
    /// the endpoint's URL
    /// @tparam Result  made of the list, by its constructor, where the answer is read
    template <class Result>
    void listFiles(const QString &suffix, bool showAllFiles, const ResultDone<Result> &onComplete);

    /// Milliseconds since the epoch, for the age of addresses.
    void setClock(std::function<qint64()> clock) { m_clock = std::move(clock); }

private:
    struct DownloadWaiter : DownloadUrlCB {
        int user;
        QString key; ///< "job/file"
    };
    /// What is made of the files that are shown; may be empty.
    using MakeResult = std::function<std::shared_ptr<void>(std::list<CloudFile> &&)>;
    struct FileList {
        AddressCache::Entries addresses; ///< of hidden files too: they can be downloaded
        AddressCache ofAnotherUser;      ///< takes the addresses if this user has gone
        std::size_t shown = 0;
        std::shared_ptr<void> result; ///< null if the list was refused
    };
    /// The last argument holds the addresses of the listing.
    using FileListHandler = std::function<void(const Outcome &, const std::shared_ptr<FileList> &, AddressCache &)>;

    static FileList readFileList(const QByteArray &body, bool showAllFiles, const MakeResult &make);
    RestClient::Abort requestFileList(const QString &suffix, bool showAllFiles, const MakeResult &make,
                                      const FileListHandler &then);
    void remember(AddressCache::Entries &files, int user, AddressCache &found);
    Grant grantOf(const AddressCache::Entry &entry) const;
    bool answerDownload(AddressCache &addresses, const QString &key, const DownloadUrlCB &waiter);

    RestClient &m_rest;
    std::function<qint64()> m_clock;
    QMap<QString, QByteArray> m_keys; ///< by job
    AddressCache m_uploadAddresses;   ///< by job
    AddressCache m_downloadAddresses; ///< by "job/file": the pieces of the latest listing
    int m_user = 0;                   ///< counts the users that all of this was granted to
    using JobOfUser = QPair<int, QString>;
    SingleFlight<JobOfUser, EncryptionKeyCB> m_keyRequests;
    SingleFlight<JobOfUser, UploadUrlCB> m_uploadAddressRequests;
    SingleFlight<JobOfUser, DownloadWaiter> m_listings;
};

template <class Result>
void JobGrants::listFiles(const QString &suffix, bool showAllFiles, const ResultDone<Result> &onComplete)
{
    const auto make = [](std::list<CloudFile> &&files) { return std::make_shared<Result>(std::move(files)); };
    requestFileList(suffix, showAllFiles, make, [this, onComplete](const Outcome &outcome, const auto &files, auto &) {
        const auto result = files->result ? std::shared_ptr<Result>(files, static_cast<Result *>(files->result.get()))
                                          : std::make_shared<Result>();
        m_rest.complete(outcome, onComplete, operationError(outcome, Endpoints::JobFilesList.title), result);
    });
}

} // namespace Velmora
