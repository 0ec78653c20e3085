// Goes through operations, faults and what a host does meanwhile, one seeded case after the other.
// A case that breaks a promise prints the line that repeats it. See --help.

#include "Torture.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
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

Step stepOf(Random &random, const QString &only)
{
    for (;;) {
        const Step step{&random.of(deeds()), &random.of(troubles()),
                        Meanwhile(random.below(std::size(meanwhileNames)))};
        if (fits(*step.deed, *step.trouble) &&
            (only.isEmpty() || QString::fromStdString(Case::describe({step})).contains(only)))
            return step;
    }
}

std::vector<std::vector<Step>> matrix(const QString &only)
{
    std::vector<std::vector<Step>> all;
    for (const Deed &deed : deeds()) {
        for (const Trouble &trouble : troubles()) {
            for (int meanwhile = 0; meanwhile < int(std::size(meanwhileNames)) && fits(deed, trouble); ++meanwhile) {
                const Step step{&deed, &trouble, Meanwhile(meanwhile)};
                if (only.isEmpty() || QString::fromStdString(Case::describe({step})).contains(only))
                    all.push_back({step});
            }
        }
    }
    return all;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser line;
    line.setApplicationDescription(QStringLiteral("Torments the library and checks its promises."));
    line.addHelpOption();
    line.addOptions(
        {{QStringLiteral("seed"), QStringLiteral("seed of the first case"), QStringLiteral("N"), QStringLiteral("1")},
         {QStringLiteral("cases"), QStringLiteral("how many"), QStringLiteral("N"), QStringLiteral("200")},
         {QStringLiteral("steps"), QStringLiteral("operations in one case, at most"), QStringLiteral("N"),
          QStringLiteral("1")},
         {QStringLiteral("matrix"), QStringLiteral("every operation with every fault and act, instead of --cases")},
         {QStringLiteral("only"), QStringLiteral("cases whose description contains the text"), QStringLiteral("TEXT")},
         {QStringLiteral("table"), QStringLiteral("say at the end how many cases each operation and fault had")},
         {QStringLiteral("verbose"), QStringLiteral("say each case")}});
    line.process(application);
    const std::uint64_t first = line.value(QStringLiteral("seed")).toULongLong();
    const std::size_t mostSteps = std::max<std::size_t>(1, line.value(QStringLiteral("steps")).toULongLong());
    const QString only = line.value(QStringLiteral("only"));
    const auto rows = line.isSet(QStringLiteral("matrix")) ? matrix(only) : std::vector<std::vector<Step>>();
    const std::uint64_t count = rows.empty() ? line.value(QStringLiteral("cases")).toULongLong() : rows.size();

    if (count == 0 || matrix(only).empty()) {
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
            steps = {{&deeds()[std::size_t(seed) + deeds().size() - warmUp], &troubles().front(), Meanwhile::Nothing}};
        else if (!rows.empty())
            steps = rows[i - warmUp];
        else
            for (std::size_t left = 1 + random.below(mostSteps); left > 0; --left)
                steps.push_back(stepOf(random, only));
        if (line.isSet(QStringLiteral("verbose")))
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
        const S chosen = rows.empty() ? "--cases 1 --steps " + std::to_string(mostSteps) : S("--matrix");
        const S text = rows.empty() ? only.toStdString() : Case::describe(steps);
        std::printf("FAILED  %s\n        %s\n        --seed %llu %s --only '%s'\n", Case::describe(steps).c_str(),
                    wrong.c_str(), static_cast<unsigned long long>(seed), chosen.c_str(), text.c_str());
        std::fflush(stdout);
    }
    if (line.isSet(QStringLiteral("table"))) {
        for (const auto &[name, cases] : table)
            std::printf("%-40s %6d\n", name.c_str(), cases);
    }
    std::printf("%llu cases, %d failed, %lld s\n", static_cast<unsigned long long>(count), failures,
                static_cast<long long>(timer.elapsed() / 1000));
    return failures == 0 ? 0 : 1;
}
