// Reserves the id of a new job and sends an input file into it. Prints the id.
#include "Application.h"

#include <filesystem>

int main(int count, char **arguments)
{
    if (count != 3) {
        std::cerr << "usage: upload ACCOUNT FILE\n";
        return 2;
    }
    const std::string path = std::filesystem::absolute(arguments[2]).u8string();

    Application application;
    const auto progressed = [](const Velmora::FileUploadDetails &, std::int64_t sent) {
        std::cerr << sent << " bytes sent\n";
    };
    const auto uploaded = [&](const Velmora::ApiError &error, const Velmora::FileUploadDetails &file) {
        if (application.failed(error))
            return;
        std::cout << file.cloudFileJobID << '\n';
        application.finish();
    };
    const auto reserved = [&](const Velmora::ApiError &error, const std::string &job) {
        if (!application.failed(error))
            application.api.uploadFile({path, job}, progressed, uploaded);
    };
    return application.run([&] { application.api.generateNewJobID(arguments[1], reserved); });
}
