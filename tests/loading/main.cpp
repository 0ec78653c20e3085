// An application without Qt that loads the library, uses it and unloads it, over and over in one process. Nothing may
// stay behind. Takes the library's path.

#include "Process.h"

#include "portal/Portal.h"

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

using Api = void *;
using Text = const char *;

const std::string content(3000000, 'u');
std::string answer; ///< the latest: its error

void onProgress(Text, std::int32_t) {}
void onSignedIn(Text error) { answer = error; }
void onTransferred(Text error, Text) { answer = error; }

void require(bool condition, const std::string &what)
{
    if (!condition)
        throw std::runtime_error(what);
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
    std::ifstream back(down, std::ios::binary);
    require(std::string(std::istreambuf_iterator<char>(back), {}) == content, "the downloaded file differs");
    back.close();
    fs::remove(down);
}

void loadAndUnload(const std::string &path, const fs::path &folder)
{
    const VelmoraPortal::Portal portal;
    setVariable("VELMORA_API_URL", portal.host());
    void *const library = load(path);
    require(library, "cannot load");
    const Api api = reinterpret_cast<Api (*)()>(symbol(library, "CreateCloudAPI"))();
    const std::string options = "{\"caFile\": \"" + fs::path(portal.caFile()).generic_string() + "\"}";
    function<Api, Text>(library, "setClientOptions_Json")(api, options.c_str());
    work(library, api, folder);
    function<Api>(library, "DestroyCloudAPI")(api);
    unload(library);
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

void run(const std::string &library, const fs::path &folder)
{
    std::ofstream(folder / "up.dat", std::ios::binary) << content;
    const Figures before = figuresAfter(warmUp, library, folder),
                  after = figuresAfter(rounds - warmUp, library, folder);
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
        require(count == 2, "usage: velmora_loading LIBRARY");
        setVariable("QT_LOGGING_RULES", "velmora=false");
        fs::create_directory(folder);
        run(arguments[1], folder);
        status = 0;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s\n", problem.what());
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return status;
}
