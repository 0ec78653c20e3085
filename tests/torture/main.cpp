// Goes through operations, faults and what a host does meanwhile, one seeded case after the other.
// A case that breaks a promise prints the line that repeats it. See --help.

#include "Torture.h"

#include <CLI/CLI.hpp>

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <map>

using namespace Torture;

namespace {

constexpr std::uint64_t warmUp = 10; ///< cases before descriptors are counted

bool fits(const Deed &deed, const Trouble &trouble)
{
    const bool socket = deed.paths.front() == S("socket");
    if (trouble.disk != DiskCall::None)
        return deed.paths.back() == S("storage");
    const bool handshake = trouble.name == S("delay") || trouble.name == S("silence") || trouble.name == S("hang up");
    return socket ? trouble.socket || trouble.host != Trouble::Portal || !trouble.fault || handshake : !trouble.socket;
}

/// Every operation with every fault that can strike it and every act.
std::vector<Step> matrix(const S &only)
{
    std::vector<Step> all;
    for (const Deed &deed : deeds()) {
        for (const Trouble &trouble : troubles()) {
            for (const Act &act : acts()) {
                const Step step{&deed, &trouble, &act};
                if (fits(deed, trouble) && Case::describe({step}).find(only) != S::npos)
                    all.push_back(step);
            }
        }
    }
    return all;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    std::uint64_t first = 1, count = 200;
    std::size_t mostSteps = 1;
    std::string only;
    bool whole = false, tabled = false, verbose = false;
    CLI::App line("Torments the library and checks its promises.");
    line.add_option("--seed", first, "seed of the first case");
    line.add_option("--cases", count, "how many");
    line.add_option("--steps", mostSteps, "operations in one case, at most");
    line.add_flag("--matrix", whole, "every operation with every fault and act, instead of --cases");
    line.add_option("--only", only, "cases whose description contains the text");
    line.add_flag("--table", tabled, "say at the end how many cases each operation and fault had");
    line.add_flag("--verbose", verbose, "say each case");
    CLI11_PARSE(line, argc, argv);
    const std::vector<Step> rows = matrix(only);
    count = whole ? rows.size() : count;

    if (count == 0 || rows.empty()) {
        std::fprintf(stderr, "no such case\n");
        return 2;
    }

    auto world = std::make_unique<World>();
    Resources most;
    std::map<S, int> table;
    std::size_t inWorld = 0; ///< operations so far
    int failures = 0;
    QElapsedTimer timer;
    timer.start();
    for (std::uint64_t i = 0; i < count + warmUp; ++i) {
        const bool warming = i < warmUp;
        const std::uint64_t seed = warming ? i : first + i - warmUp;
        Random random(seed);
        std::vector<Step> steps;
        if (warming)
            steps = {{&deeds()[std::size_t(seed) + deeds().size() - warmUp], &troubles().front(), &acts().front()}};
        else if (whole)
            steps = {rows[i - warmUp]};
        else
            for (std::size_t left = 1 + random.below(std::max<std::size_t>(1, mostSteps)); left > 0; --left)
                steps.push_back(random.of(rows));
        if (verbose)
            std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), Case::describe(steps).c_str()),
                std::fflush(stdout);
        if (inWorld > 100) // the jobs and files of so many make its listings long
            world.reset(), world = std::make_unique<World>(), inWorld = 0;
        inWorld += steps.size();
        world->most = warming ? Resources() : most;
        const S wrong = Case(*world, seed).run(steps);
        if (warming)
            most = {std::max(most.threads, resources().threads), std::max(most.descriptors, resources().descriptors)};
        if (i + 1 == warmUp) // and some more for the threads on which Qt looks up names
            most = {most.threads + 3, most.descriptors + 3};
        for (const Step &step : steps)
            ++table[S("operation  ") + step.deed->name], ++table[S("fault      ") + step.trouble->name];
        if (wrong.empty())
            continue;
        ++failures;
        const S chosen = whole ? S("--matrix") : "--cases 1 --steps " + std::to_string(mostSteps);
        const S text = whole ? Case::describe(steps) : only;
        std::printf("FAILED  %s\n        %s\n        --seed %llu %s --only '%s'\n", Case::describe(steps).c_str(),
                    wrong.c_str(), static_cast<unsigned long long>(seed), chosen.c_str(), text.c_str());
        std::fflush(stdout);
    }
    if (tabled) {
        for (const auto &[name, cases] : table)
            std::printf("%-40s %6d\n", name.c_str(), cases);
    }
    std::printf("%llu cases, %d failed, %lld s\n", static_cast<unsigned long long>(count), failures,
                static_cast<long long>(timer.elapsed() / 1000));
    return failures == 0 ? 0 : 1;
}
