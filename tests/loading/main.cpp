// An application without Qt that loads the library, uses it and unloads it, over and over in one process. Nothing may
// stay behind.
//
//     velmora_loading LIBRARY TRUST

#include "Process.h"

#include "Portal.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int rounds = 100;
constexpr int warmUp = 10;          // rounds until everything that is made only once exists
constexpr long kilobytesARound = 4; // more is a leak; Qt keeps some tables that grow a few times

using Api = void *;
using Text = const char *;

std::string answer; ///< the latest: its error

void onProgress(Text, std::int32_t) {}
void onSignedIn(Text error) { answer = error; }
void onTransferred(Text error, Text) { answer = error; }

void require(bool condition, const std::string &what)
{
    if (!condition)
        throw std::runtime_error(what);
}

std::string contentOf(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A function of a library that returns nothing.
template <class... Arguments> auto function(void *library, const char *name)
{
    return reinterpret_cast<void (*)(Arguments...)>(symbol(library, name));
}

void waitForSuccess(void *library, Api api)
{
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (answer.empty() && std::chrono::steady_clock::now() < deadline) {
        function<Api>(library, "processEvents")(api);
        std::this_thread::sleep_for(1ms);
    }
    require(answer.find("\"errorCode\": 20") != std::string::npos, "no success: " + answer);
    answer.clear();
}

/// Signs in, uploads and downloads a file: the network, its threads, TLS, the cipher and the pool all run.
void work(void *library, Api api, const fs::path &folder)
{
    const auto &user = VelmoraPortal::seededUsers()[0];
    const auto logIn = function<Api, Text, Text, Text, decltype(&onSignedIn)>(library, "logUserIn_Json");
    logIn(api, user.email.c_str(), user.password.c_str(), "", onSignedIn);
    waitForSuccess(library, api);

    const auto transfer = [&](const char *name, const fs::path &local, const std::string &cloud) {
        const std::string file = "{\"localFileLocation\": \"" + local.generic_string() + "\", " + cloud + '}';
        const auto start = function<Api, Text, decltype(&onProgress), decltype(&onTransferred)>(library, name);
        start(api, file.c_str(), onProgress, onTransferred);
        waitForSuccess(library, api);
    };
    const fs::path up = folder / "up.dat", down = folder / "down.dat";
    transfer("uploadFile_Json", up, R"("cloudFileJobID": "job-wing0001")");
    transfer("downloadFile_Json", down, R"("cloudFileDetails": {"jobId": "job-wing0001", "fileName": "up.dat"})");
    require(contentOf(down) == contentOf(up), "the downloaded file differs");
    fs::remove(down);
}

void loadAndUnload(const std::string &libraryPath, const std::string &trustPath, const fs::path &folder)
{
    const VelmoraPortal::Portal portal;
    setVariable("VELMORA_API_URL", portal.host());
    void *const library = load(libraryPath);
    void *const trust = load(trustPath);
    require(library && trust, "cannot load");
    function<Text>(trust, "trust")(portal.caPem().c_str());
    const Api api = reinterpret_cast<Api (*)()>(symbol(library, "CreateCloudAPI"))();
    work(library, api, folder);
    function<Api>(library, "DestroyCloudAPI")(api);
    unload(trust);
    unload(library);
    require(!isLoaded(libraryPath), "the library is still loaded");
}

Figures figuresAfter(int count, const std::string &library, const std::string &trust, const fs::path &folder)
{
    for (int round = 0; round < count; ++round)
        loadAndUnload(library, trust, folder);
    const Figures now = figures();
    std::printf("after %d more: %d threads, %d handles, %ld KiB\n", count, now.threads, now.handles, now.kilobytes);
    return now;
}

void run(const std::string &library, const std::string &trust, const fs::path &folder)
{
    std::ofstream(folder / "up.dat", std::ios::binary) << std::string(3000000, 'u');
    const Figures before = figuresAfter(warmUp, library, trust, folder);
    const Figures after = figuresAfter(rounds - warmUp, library, trust, folder);
    require(after.threads <= before.threads, "threads were left behind");
    require(after.handles <= before.handles, "handles were left behind");
    require(after.kilobytes - before.kilobytes <= kilobytesARound * (rounds - warmUp), "memory was left behind");
}

} // namespace

int main(int count, char **arguments)
{
    const fs::path folder = fs::temp_directory_path() / ("velmora-loading-" + std::to_string(std::time(nullptr)));
    int status = 1;
    try {
        require(count == 3, "usage: velmora_loading LIBRARY TRUST");
        setVariable("QT_LOGGING_RULES", "velmora=false");
        fs::create_directory(folder);
        run(arguments[1], arguments[2], folder);
        status = 0;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s\n", problem.what());
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return status;
}
