// The flat functions that list, delete and transfer files.

#include "api/flat/Adapters.h"
#include "operations/Files.h"

using namespace Velmora;
using Flat::json;
using Flat::plain;

void getJobFileList(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles, VelmoraFileListCallback onComplete)
{
    plain.files(api, onComplete, showAllFiles, &Files::ofJob, jobId);
}

void getJobFileList_Json(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles, VelmoraJsonCallback onComplete)
{
    json.files(api, onComplete, showAllFiles, &Files::ofJob, jobId);
}

void getSimulationFileList(VelmoraCloudAPI *api, const char *jobId, const char *simulationId, bool showAllFiles,
                           VelmoraFileListCallback onComplete)
{
    plain.files(api, onComplete, showAllFiles, &Files::ofSimulation, jobId, simulationId);
}

void getSimulationFileList_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId, bool showAllFiles,
                                VelmoraJsonCallback onComplete)
{
    json.files(api, onComplete, showAllFiles, &Files::ofSimulation, jobId, simulationId);
}

void getUsersFileList(VelmoraCloudAPI *api, bool showAllFiles, VelmoraFileListCallback onComplete)
{
    plain.files(api, onComplete, showAllFiles, &Files::ofUser);
}

void getUsersFileList_Json(VelmoraCloudAPI *api, bool showAllFiles, VelmoraJsonCallback onComplete)
{
    json.files(api, onComplete, showAllFiles, &Files::ofUser);
}

void deleteFile(VelmoraCloudAPI *api, const VelmoraDeleteFileDetails *file, VelmoraDeleteFileCallback onComplete)
{
    plain(api, &CloudAPI::deleteFile, file, onComplete);
}

void deleteFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::deleteFile, file, onComplete);
}

void downloadFile(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file,
                  VelmoraDownloadProgressCallback onProgress, VelmoraDownloadCallback onComplete)
{
    plain(api, &CloudAPI::downloadFile, file, onProgress, onComplete);
}

void downloadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                       VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::downloadFile, file, onProgress, onComplete);
}

void uploadFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file, VelmoraUploadProgressCallback onProgress,
                VelmoraUploadCallback onComplete)
{
    plain(api, &CloudAPI::uploadFile, file, onProgress, onComplete);
}

void uploadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                     VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::uploadFile, file, onProgress, onComplete);
}

void uploadInputFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                     VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete)
{
    plain(api, &CloudAPI::uploadInputFile, file, onProgress, onComplete);
}

void uploadInputFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                          VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::uploadInputFile, file, onProgress, onComplete);
}

bool cancelDownload(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file)
{
    return plain(api, &CloudAPI::cancelDownload, file);
}

bool cancelDownload_Json(VelmoraCloudAPI *api, const char *file) { return json(api, &CloudAPI::cancelDownload, file); }

bool cancelUpload(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file)
{
    return plain(api, &CloudAPI::cancelUpload, file);
}

bool cancelUpload_Json(VelmoraCloudAPI *api, const char *file) { return json(api, &CloudAPI::cancelUpload, file); }
