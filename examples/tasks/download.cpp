// Fetches the results of a job.
#include "Application.h"

#include <filesystem>

int main(int count, char **arguments)
{
    if (count != 3) {
        std::cerr << "usage: download JOB FOLDER\n";
        return 2;
    }
    const std::string folder = std::filesystem::absolute(arguments[2]).u8string();

    Application application;
    std::size_t remaining = 0;
    const auto progressed = [](const Velmora::FileDownloadDetails &file, std::int64_t received) {
        std::cerr << received << " bytes of " << file.cloudFileDetails.fileName << '\n';
    };
    const auto downloaded = [&](const Velmora::ApiError &error, const Velmora::FileDownloadDetails &file) {
        if (application.failed(error))
            return;
        std::cout << file.localFileLocation << '\n';
        if (--remaining == 0)
            application.finish();
    };
    const auto listed = [&](const Velmora::ApiError &error, std::list<Velmora::CloudFile> files) {
        if (application.failed(error))
            return;
        files.remove_if([](const Velmora::CloudFile &file) {
            const bool isInput = file.fileName.find('/') == std::string::npos; // results are in folders
            return isInput || file.directory || !Velmora::isSafePath(file.fileName);
        });
        remaining = files.size();
        if (files.empty())
            application.finish();
        for (const Velmora::CloudFile &file : files)
            application.api.downloadFile({folder + '/' + file.fileName, file}, progressed, downloaded);
    };
    return application.run([&] { application.api.getJobFileList(arguments[1], false, listed); });
}
