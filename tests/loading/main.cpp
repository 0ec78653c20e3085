// A host without Qt that loads the library, has it work, and lets it go, over and over in one process. Nothing may
// stay behind.
//
//     velmora_loading LIBRARY TRUST ROUNDS

#include "Process.h"

#include "Portal.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int warmUp = 10;          // rounds until everything that is made once has been made
constexpr long kilobytesARound = 4; // more is a leak; Qt keeps some tables that grow a few times
constexpr auto patience = 30s;

using Api = void *;
using Answer = void (*)(const char *error, const char *result);

struct Outcome {
    bool came = false;
    std::string error, result;
} outcome;

void onAnswer(const char *error, const char *result) { outcome = {true, error, result ? result : ""}; }
void onSignedIn(const char *error) { onAnswer(error, ""); }
void onProgress(const char *, std::int32_t) {}

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

/// Waits for the answer of what was just called. @return its result
std::string answerOf(const Module &library, Api api)
{
    const auto processEvents = library.function<void(Api)>("processEvents");
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!outcome.came && std::chrono::steady_clock::now() < deadline) {
        processEvents(api);
        std::this_thread::sleep_for(1ms);
    }
    const Outcome answer = std::exchange(outcome, {});
    require(answer.error.find("\"errorCode\": 20") != std::string::npos, "no success: " + answer.error);
    return answer.result;
}

/// Signs in and takes a file up and down again: the network, its threads, TLS, the cipher and the pool all run.
void work(const Module &library, Api api, const fs::path &folder)
{
    const auto &user = VelmoraPortal::seededUsers()[0];
    library.function<void(Api, const char *, const char *, const char *, void (*)(const char *))>("logUserIn_Json")(
        api, user.email.c_str(), user.password.c_str(), "", onSignedIn);
    answerOf(library, api);
    library.function<void(Api, const char *, Answer)>("generateNewJobID_Json")(api, "ACC-1001", onAnswer);
    const std::string job = answerOf(library, api);

    using Transfer = void(Api, const char *file, void (*)(const char *, std::int32_t), Answer);
    const fs::path up = folder / "up.dat", down = folder / "down.dat";
    library.function<Transfer>("uploadFile_Json")(
        api, ("{\"localFileLocation\": \"" + up.generic_string() + "\", \"cloudFileJobID\": \"" + job + "\"}").c_str(),
        onProgress, onAnswer);
    answerOf(library, api);
    library.function<Transfer>("downloadFile_Json")(api,
                                                    ("{\"localFileLocation\": \"" + down.generic_string() +
                                                     "\", \"cloudFileDetails\": {\"jobId\": \"" + job +
                                                     "\", \"fileName\": \"up.dat\"}}")
                                                        .c_str(),
                                                    onProgress, onAnswer);
    answerOf(library, api);
    require(contentOf(down) == contentOf(up), "the file came back as another");
}

void takeIn(const std::string &libraryPath, const std::string &trustPath, const fs::path &folder)
{
    const VelmoraPortal::Portal portal;
    setVariable("VELMORA_API_URL", portal.host());
    const Module library(libraryPath);
    const Module trust(trustPath);
    trust.function<void(const char *)>("trust")(portal.caPem().c_str());
    const Api api = library.function<Api()>("CreateCloudAPI")();
    work(library, api, folder);
    library.function<void(Api)>("DestroyCloudAPI")(api);
}

Figures report(int round)
{
    const Figures now = figures();
    std::printf("after %3d loads: %d threads, %d handles, %ld KiB\n", round, now.threads, now.handles, now.kilobytes);
    std::fflush(stdout);
    return now;
}

void run(const std::string &library, const std::string &trust, int rounds, const fs::path &folder)
{
    std::ofstream(folder / "up.dat", std::ios::binary) << std::string(3000000, 'u');
    report(0);
    Figures before;
    for (int round = 1; round <= rounds; ++round) {
        takeIn(library, trust, folder);
        require(!Module::isLoaded(library), "the library stayed");
        if (round == warmUp)
            before = report(round);
    }
    const Figures after = report(rounds);
    require(after.threads <= before.threads, "threads stayed");
    require(after.handles <= before.handles, "handles stayed");
    require(after.kilobytes - before.kilobytes <= kilobytesARound * (rounds - warmUp), "memory stayed");
}

} // namespace

int main(int argc, char **argv)
{
    const fs::path folder = fs::temp_directory_path() / ("velmora-loading-" + std::to_string(std::time(nullptr)));
    int status = 1;
    try {
        setVariable("QT_LOGGING_RULES", "velmora=false");
        require(argc == 4 && std::atoi(argv[3]) > warmUp, "usage: velmora_loading LIBRARY TRUST ROUNDS");
        fs::create_directory(folder);
        run(argv[1], argv[2], std::atoi(argv[3]), folder);
        status = 0;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s\n", problem.what());
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return status;
}
