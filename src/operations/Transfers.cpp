#include "operations/Transfers.h"

#include "base/Log.h"
#include "model/Json.h"
#include "transfer/FileTransferManager.h"
#include "transfer/Titles.h"

#include <QDir>

namespace Velmora {

namespace {

FileUploadDetails withNativePath(FileUploadDetails file)
{
    file.localFileLocation = QDir::toNativeSeparators(toQt(file.localFileLocation)).toStdString();
    return file;
}

} // namespace

void Transfers::upload(FileTransferManager &transfers, const FileUploadDetails &file, const UploadProgress &onProgress,
                       const ResultDone<FileUploadDetails> &onComplete)
{
    const FileUploadDetails native = withNativePath(file);
    VELMORA_LOG() << "in CloudAPIImpl::uploadFile(): " << toQt(native.localFileLocation);
    if (!native.localFileLocation.empty() && !native.cloudFileJobID.empty())
        transfers.uploadFile(native, onProgress, onComplete);
    else if (const auto callback = onComplete) // a copy: the callback may destroy the original
        callback({400, Titles::UploadNotSetUp,
                  native.localFileLocation.empty() ? "Local File to upload was not provided"
                                                   : "No Job ID to upload file into was provided"},
                 native);
}

bool Transfers::cancelUpload(FileTransferManager &transfers, const FileUploadDetails &file)
{
    return transfers.cancelUpload(withNativePath(file));
}

} // namespace Velmora
