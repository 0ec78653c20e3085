#pragma once

#include <velmora/Callbacks.h>

namespace Velmora {

class FileTransferManager;

/// Uploads of files, as the application names them.
namespace Transfers {

/// A refused one completes inside the call.
void upload(FileTransferManager &transfers, const FileUploadDetails &file, const UploadProgress &onProgress,
            const ResultDone<FileUploadDetails> &onComplete);
bool cancelUpload(FileTransferManager &transfers, const FileUploadDetails &file);

} // namespace Transfers

} // namespace Velmora
