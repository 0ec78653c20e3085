// Combines operations, faults and actions of the application, one seeded case after the other. A case that breaks
// a promise prints the options that repeat it. See --help.

#include "Torture.h"

#include <CLI/CLI.hpp>

using namespace Torture;

namespace {

constexpr std::uint64_t warmUp = 10; ///< cases before descriptors are counted

bool fits(const Operation &operation, const Fault &fault)
{
    const bool socket = operation.paths.front() == "socket"s;
    if (fault.disk != DiskCall::None) // an upload only reads
        return operation.paths.back() == "storage"s &&
               (operation.name == "downloadFile"s || fault.disk == DiskCall::Open || fault.disk == DiskCall::Read ||
                fault.disk == DiskCall::Close);
    const bool handshake = fault.name == "delay"s || fault.name == "silence"s || fault.name == "hang up"s;
    return socket ? fault.socket || fault.host != Fault::Portal || !fault.portal || handshake : !fault.socket;
}

/// Every operation with every fault that it can meet and every action. An operation's steps follow each other.
std::vector<Step> matrix(const string &only)
{
    std::vector<Step> all;
    for (const Operation &operation : operations)
        for (const Fault &fault : faults)
            for (const Action &action : actions) {
                const Step step{&operation, &fault, &action};
                if (fits(operation, fault) && Case::describe({step}).find(only) != string::npos)
                    all.push_back(step);
            }
    return all;
}

/// The same steps by risk and operation. Seeds take the strata in turn: half of them transfers, a quarter sockets and
/// sessions, a quarter the rest; in each, one operation after the other.
class Strata {
public:
    explicit Strata(const std::vector<Step> &steps)
    {
        for (const Step &step : steps) {
            const string first = step.operation->paths.front(), last = step.operation->paths.back();
            auto &ofRisk = m_strata[last == "storage" ? 0 : last == "socket" || first == "auth/login" ? 1 : 2];
            if (ofRisk.empty() || ofRisk.back().front().operation != step.operation)
                ofRisk.emplace_back();
            ofRisk.back().push_back(step);
        }
    }
    const Step &of(std::uint64_t number, Random &random) const
    {
        constexpr std::size_t turns[] = {0, 1, 0, 2};
        std::uint64_t turn = number % 4;
        while (m_strata[turns[turn]].empty())
            turn = (turn + 1) % 4;
        const auto &ofRisk = m_strata[turns[turn]];
        return random.of(ofRisk[number / (turns[turn] == 0 ? 2 : 4) % ofRisk.size()]);
    }

private:
    std::vector<std::vector<Step>> m_strata[3];
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // a case's line is there when a later one crashes
    std::uint64_t first = 1, count = 200;
    std::size_t mostSteps = 1;
    std::string only;
    bool whole = false, tabled = false, verbose = false;
    CLI::App line("Checks what the library promises. A case is OPERATION / FAULT / ACTION: the fault is injected, the\n"
                  "operation starts, and the application does the action before, during or after it.");
    line.add_option("--seed", first, "seed of the first case");
    line.add_option("--cases", count, "number of cases: half of them transfers, a quarter sockets and sessions");
    line.add_option("--steps", mostSteps, "operations in one case, at most");
    line.add_flag("--matrix", whole, "every operation with every fault and action, instead of --cases");
    line.add_option("--only", only, "only cases that contain the text, such as 'subscribeToJob / unreachable'");
    line.add_flag("--table", tabled, "print at the end how many cases each operation and each fault had");
    line.add_flag("--verbose", verbose, "print each case");
    CLI11_PARSE(line, argc, argv);
    const std::vector<Step> rows = matrix(only);
    const Strata strata(rows);
    count = whole ? rows.size() : count;

    if (count == 0 || rows.empty()) {
        std::fprintf(stderr, "no such case\n");
        return 2;
    }

    auto environment = std::make_unique<Environment>();
    Resources most;
    std::map<string, int> table;
    std::map<string, std::pair<int, int>> strikes; ///< of the disk: cases, and those in which the fault took effect
    std::size_t inEnvironment = 0;                 ///< operations so far
    int failures = 0;
    QElapsedTimer timer;
    timer.start();
    for (std::uint64_t i = 0; i < count + warmUp; ++i) {
        const bool warming = i < warmUp;
        const std::uint64_t seed = warming ? i : first + i - warmUp;
        Random random{std::mt19937_64(seed)};
        std::vector<Step> steps;
        if (warming)
            steps = {{&operations.end()[int(seed) - int(warmUp)], &faults.front(), &actions.front()}};
        else if (whole)
            steps = {rows[i - warmUp]};
        else
            for (std::size_t left = 1 + random.below(std::max<std::size_t>(1, mostSteps)); left > 0; --left)
                steps.push_back(strata.of(seed + steps.size(), random));
        if (verbose && !warming)
            std::printf("seed %s: %s\n", std::to_string(seed).c_str(), Case::describe(steps).c_str());
        if (inEnvironment > 100) // the jobs and files of many operations make the listings long
            environment.reset(), environment = std::make_unique<Environment>(), inEnvironment = 0;
        inEnvironment += steps.size();
        environment->most = warming ? Resources() : most;
        std::optional<Case> test{std::in_place, *environment, seed};
        const string wrong = test->run(steps);
        const bool tookEffect = test->strikes() > 0;
        test.reset();
        if (warming)
            most = {std::max(most.threads, resources().threads), std::max(most.descriptors, resources().descriptors)};
        if (i + 1 == warmUp) // and some more for the threads on which Qt looks up host names
            most = {most.threads + 3, most.descriptors + 3};
        if (!warming && steps.size() == 1 && steps[0].fault->disk != DiskCall::None) {
            auto &[cases, effective] = strikes[string(steps[0].fault->name) + " / " + steps[0].operation->name];
            ++cases;
            effective += tookEffect;
        }
        for (const Step &step : warming ? std::vector<Step>() : steps)
            ++table["operation  "s + step.operation->name], ++table["fault      "s + step.fault->name];
        if (wrong.empty())
            continue;
        ++failures;
        const string chosen = whole ? "--matrix"s : "--cases 1 --steps " + std::to_string(mostSteps);
        const string text = whole ? Case::describe(steps) : only;
        std::printf("FAILED  %s\n        %s\n        --seed %s %s --only '%s'\n", Case::describe(steps).c_str(),
                    wrong.c_str(), std::to_string(seed).c_str(), chosen.c_str(), text.c_str());
    }
    for (const auto &[name, cases] : tabled ? table : std::map<string, int>())
        std::printf("%-40s %6d\n", name.c_str(), cases);
    for (const auto &[name, counts] : strikes) {
        const bool provesNothing = counts.first >= 8 && counts.second == 0;
        failures += provesNothing;
        if (tabled || provesNothing)
            std::printf("%s%-50s %6d, took effect in %d\n", provesNothing ? "FAILED  " : "", name.c_str(), counts.first,
                        counts.second);
    }
    std::printf("%s cases, %d failed, %d s\n", std::to_string(count).c_str(), failures, int(timer.elapsed() / 1000));
    return failures == 0 ? 0 : 1;
}
