// Listing and deleting files in the cloud.

#include "model/Log.h"
#include "transport/Pipeline.h"

namespace Velmora {

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
    call<std::list<CloudFile>>(
        {RequestType::JobFilesList, Verb::Get, {}, suffix},
        [this, showAllFiles](const QByteArray &body) { return readFileList(body, showAllFiles); }, onComplete);
}

std::list<CloudFile> CloudAPIImpl::readFileList(const QByteArray &body, bool showAllFiles)
{
    const QJsonArray array = QJsonDocument::fromJson(body).array();
    std::list<CloudFile> files = readReplyList<CloudFile>(array);
    if (!showAllFiles)
        files.remove_if([](const CloudFile &file) { return file.fileName.find("/rtg/") != std::string::npos; });
    VELMORA_LOG() << "Received list of" << files.size() << "files.";
    rememberDownloads(array); // hidden files can be downloaded too
    return files;
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
