// An application without Qt that loads the library, uses it and unloads it, over and over in one process. Nothing may
// stay behind. Takes the library's path.

#include "Process.h"

#include "portal/Portal.h"

#include <boost/dll/shared_library.hpp>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int rounds = 100;
constexpr int warmUp = 10;          // rounds until everything that is made only once exists
constexpr long kilobytesARound = 4; // more is a leak; Qt keeps some tables that grow a few times

using Library = boost::dll::shared_library;
using Api = void *;
using Text = const char *;

const std::string content(3000000, 'u');
std::string answer; ///< the latest: its error

void onProgress(Text, std::int32_t) {}
template <class... Result> void onDone(Text error, Result...) { answer = error; }

void require(bool condition, const std::string &what)
{
    if (!condition)
        throw std::runtime_error(what);
}

void waitForSuccess(const Library &library, Api api)
{
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (answer.empty() && std::chrono::steady_clock::now() < deadline) {
        library.get<void(Api)>("processEvents")(api);
        std::this_thread::sleep_for(1ms);
    }
    require(answer.find("\"errorCode\": 20") != std::string::npos, "no success: " + answer);
    answer.clear();
}

/// Signs in, uploads and downloads a file: the network, its threads, TLS, the cipher and the pool all run.
void work(const Library &library, Api api, const fs::path &folder)
{
    const auto &user = VelmoraPortal::seededUsers()[0];
    const auto &logIn = library.get<void(Api, Text, Text, Text, decltype(&onDone<>))>("logUserIn_Json");
    logIn(api, user.email.c_str(), user.password.c_str(), "", onDone<>);
    waitForSuccess(library, api);

    const auto transfer = [&](const char *name, const fs::path &local, const std::string &cloud) {
        const std::string file = "{\"localFileLocation\": \"" + local.generic_string() + "\", " + cloud + '}';
        library.get<void(Api, Text, decltype(&onProgress), decltype(&onDone<Text>))>(name)(api, file.c_str(),
                                                                                           onProgress, onDone<Text>);
        waitForSuccess(library, api);
    };
    const fs::path up = folder / "up.dat", down = folder / "down.dat";
    transfer("uploadFile_Json", up, R"("cloudFileJobID": "job-wing0001")");
    transfer("downloadFile_Json", down, R"("cloudFileDetails": {"jobId": "job-wing0001", "fileName": "up.dat"})");
    std::ifstream back(down, std::ios::binary);
    require(std::string(std::istreambuf_iterator<char>(back), {}) == content, "the downloaded file differs");
    back.close();
    fs::remove(down);
}

void loadAndUnload(const std::string &path, const fs::path &folder)
{
    const VelmoraPortal::Portal portal;
    setVariable("VELMORA_API_URL", portal.host());
    Library library(fs::path(path).make_preferred(), boost::dll::load_mode::rtld_now);
    const Api api = library.get<Api()>("CreateCloudAPI")();
    const std::string options = "{\"caFile\": \"" + fs::path(portal.caFile()).generic_string() + "\"}";
    library.get<void(Api, Text)>("setClientOptions_Json")(api, options.c_str());
    work(library, api, folder);
    library.get<void(Api)>("DestroyCloudAPI")(api);
    library.unload();
    require(!isLoaded(path), "the library is still loaded");
}

Figures figuresAfter(int count, const std::string &library, const fs::path &folder)
{
    for (int round = 0; round < count; ++round)
        loadAndUnload(library, folder);
    const Figures now = figures();
    std::printf("after %d more: %d threads, %d handles, %ld KiB\n", count, now.threads, now.handles, now.kilobytes);
    return now;
}

} // namespace

int main(int count, char **arguments)
{
    const fs::path folder = fs::temp_directory_path() / ("velmora-loading-" + std::to_string(std::time(nullptr)));
    int status = 1;
    try {
        require(count == 2, "usage: velmora_loading LIBRARY");
        setVariable("QT_LOGGING_RULES", "velmora=false");
        fs::create_directory(folder);
        std::ofstream(folder / "up.dat", std::ios::binary) << content;
        const Figures before = figuresAfter(warmUp, arguments[1], folder),
                      after = figuresAfter(rounds - warmUp, arguments[1], folder);
        require(after.threads <= before.threads, "threads were left behind");
        require(after.handles <= before.handles, "handles were left behind");
        require(after.kilobytes - before.kilobytes <= kilobytesARound * (rounds - warmUp), "memory was left behind");
        status = 0;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s\n", problem.what());
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return status;
}
