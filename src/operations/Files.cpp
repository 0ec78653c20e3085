// Listing and deleting files in the cloud.

#include "base/Log.h"
#include "transport/Pipeline.h"

namespace Velmora {

namespace {

struct FileList {
    QJsonArray array;
    std::list<CloudFile> shown;
};

FileList readFileList(const QByteArray &body, bool showAllFiles)
{
    const QJsonArray array = QJsonDocument::fromJson(body).array();
    FileList list{array, readReplyList<CloudFile>(array)};
    if (!showAllFiles)
        list.shown.remove_if([](const CloudFile &file) { return file.fileName.find("/rtg/") != std::string::npos; });
    return list;
}

} // namespace

void CloudAPIImpl::getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getUsersFileList(): ZRV call for all users files";
    listFiles({}, showAllFiles, onComplete);
}

void CloudAPIImpl::getJobFileList(const std::string &jobId, bool showAllFiles,
                                  const ResultDone<std::list<CloudFile>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this job: " << toQt(jobId);
    listFiles(QStringLiteral("/%1").arg(toQt(jobId)), showAllFiles, onComplete);
}

void CloudAPIImpl::getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                                         const ResultDone<std::list<CloudFile>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this simulation: JobID: "
                  << toQt(jobId) << "\tSimID: " << toQt(simulationId);
    listFiles(QStringLiteral("/%1/%2").arg(toQt(jobId), toQt(simulationId)), showAllFiles, onComplete);
}

void CloudAPIImpl::listFiles(const QString &suffix, bool showAllFiles,
                             const ResultDone<std::list<CloudFile>> &onComplete)
{
    requestFileList(suffix, showAllFiles, [this, onComplete](const Outcome &outcome, std::list<CloudFile> &&files) {
        deliver(onComplete, outcome.error, std::move(files));
    });
}

void CloudAPIImpl::requestFileList(const QString &suffix, bool showAllFiles, const FileListHandler &handle)
{
    exchange({RequestType::JobFilesList, Verb::Get, {}, suffix}, [=](const Outcome &outcome) {
        if (outcome.failed)
            return handle(outcome, {});
        const auto accept = [=](FileList &&list) {
            VELMORA_LOG() << "Received list of" << list.shown.size() << "files.";
            rememberDownloads(list.array); // hidden files can be downloaded too
            handle(outcome, std::move(list.shown));
        };
        readBody(
            outcome.body, [=](const QByteArray &body) { return readFileList(body, showAllFiles); }, accept);
    });
}

void CloudAPIImpl::deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete)
{
    VELMORA_LOG() << "Delete File API call being made:";
    const QString suffix =
        file.simulationId.empty()
            ? QStringLiteral("/%1/%2").arg(toQt(file.jobId), toQt(file.fileName))
            : QStringLiteral("/%1/%2/%3").arg(toQt(file.jobId), toQt(file.simulationId), toQt(file.fileName));
    exchange({RequestType::JobFilesDelete, Verb::Delete, {}, suffix},
             [this, file, onComplete](const Outcome &outcome) { deliver(onComplete, outcome.error, file); });
}

} // namespace Velmora
