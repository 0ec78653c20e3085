#include "Rows.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <sys/resource.h>

namespace Bench {
namespace {

struct Cost {
    double wall = 0; ///< seconds
    double cpu = 0;  ///< seconds of this process and its ended children, which other load on the machine sways less
};

double cpuSeconds()
{
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage = {};
        ::getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime})
            sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }
    return sum;
}

Cost measure(const std::function<void()> &work)
{
    const double cpu = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    return {std::chrono::duration<double>(end - start).count(), cpuSeconds() - cpu};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

void fail(const std::string &why)
{
    std::fprintf(stderr, "benchmark: %s\n", why.c_str());
    std::exit(1);
}

void require(bool condition, const std::string &what)
{
    if (!condition)
        fail(what);
}

void head()
{
    std::printf(
        "| What | Ours | Peer | Wall ratio (range) | CPU ratio | Goal (wall) | |\n|---|---|---|---|---|---|---|\n");
}

void row(const std::string &what, const std::string &peer, double goal, int rounds, const std::function<void()> &ours,
         const std::function<void()> &theirs)
{
    std::vector<double> ourTimes;
    std::vector<double> peerTimes;
    std::vector<double> ratios;
    std::vector<double> cpuRatios;
    ours(); // the first pass pays for page allocation and library set-up
    theirs();
    for (int round = 0; round < rounds; ++round) {
        const bool oursFirst = round % 2 == 0;
        const Cost first = measure(oursFirst ? ours : theirs);
        const Cost second = measure(oursFirst ? theirs : ours);
        const Cost &mine = oursFirst ? first : second;
        const Cost &other = oursFirst ? second : first;
        ourTimes.push_back(mine.wall);
        peerTimes.push_back(other.wall);
        ratios.push_back(mine.wall / other.wall);
        cpuRatios.push_back(mine.cpu / other.cpu);
    }
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    std::printf("| %s | %.3f s | %s: %.3f s | %.2f (%.2f to %.2f) | %.2f | ", what.c_str(), median(ourTimes),
                peer.c_str(), median(peerTimes), median(ratios), *low, *high, median(cpuRatios));
    if (goal > 0)
        std::printf("%.2f | %s |\n", goal, median(ratios) <= goal ? "met" : "missed");
    else
        std::printf("none | |\n");
    std::fflush(stdout);
}

void writePlain(const std::string &path, std::size_t size)
{
    std::vector<char> block(1 << 20);
    unsigned int state = 12345;
    for (char &byte : block) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    std::FILE *file = std::fopen(path.c_str(), "wb");
    require(file != nullptr, "cannot create " + path);
    for (std::size_t left = size; left > 0;) {
        const std::size_t part = std::min(left, block.size());
        require(std::fwrite(block.data(), 1, part, file) == part, "cannot write " + path);
        left -= part;
    }
    std::fclose(file);
}

void requireSame(const std::string &a, const std::string &b) { run("cmp -s '" + a + "' '" + b + "'"); }

void run(const std::string &command) { require(std::system(command.c_str()) == 0, "failed: " + command); }

} // namespace Bench
