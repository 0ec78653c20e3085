#include "arguments/Words.h"

#include "arguments/Config.h"
#include "common/Output.h"
#include "session/Session.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <sstream>

namespace Velmora::Cli {

namespace {

using Strings = std::vector<std::string>;

std::vector<const CLI::App *> commandsOf(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *candidate) { return !candidate->get_group().empty(); });
}

template <class App> App *commandIn(App &app, const std::string &name)
{
    for (App *command : app.get_subcommands(std::function<bool(App *)>()))
        if (command->get_name() == name)
            return command;
    return nullptr;
}

bool takesValue(const CLI::Option *option) { return option && option->get_items_expected_max() > 0; }

/// How many letters must be added, removed, replaced or swapped with their neighbour.
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> steps(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            steps[i][j] = std::min(
                {steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    return steps[a.size()][b.size()];
}

std::string withNearest(const std::string &text, const std::string &word, const Strings &candidates)
{
    std::string nearest;
    size_t least = std::max<size_t>(2, word.size() / 3 + 1);
    for (const std::string &candidate : candidates)
        if (const size_t steps = distance(word, candidate); steps < least) {
            least = steps;
            nearest = candidate;
        }
    return nearest.empty() ? text : text + "; did you mean \"" + nearest + "\"?";
}

Strings optionNames(const CLI::App &app)
{
    Strings names;
    for (const CLI::Option *option : app.get_options())
        for (const std::string &name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

/// What follows the words before the cursor.
struct Place {
    CLI::App *command = nullptr;
    CLI::Option *option = nullptr; ///< whose value comes next
    Strings positionals;
};

Place placeAfter(CLI::App &app, const Strings &words)
{
    Place place;
    for (const std::string &word : words) {
        if (word == "=")
            continue;
        if (place.option) {
            place.option->add_result(word);
            place.option = nullptr;
        } else if (word.size() > 1 && word.front() == '-') {
            const size_t end = word.find('=');
            CLI::Option *option = (place.command ? place.command : &app)->get_option_no_throw(word.substr(0, end));
            if (takesValue(option) && end == std::string::npos)
                place.option = option;
            else if (takesValue(option))
                option->add_result(word.substr(end + 1));
        } else if (!place.command) {
            place.command = commandIn(app, word);
        } else {
            place.positionals.push_back(word);
        }
    }
    return place;
}

/// The service's own words; none when nobody is signed in or it does not answer at once.
std::string fromService(const Options &given, const std::string &jobOfFiles, const char *suffix)
{
    Options options = given;
    options.quiet = true;
    options.timeoutSeconds = 1;
    std::string text;
    try {
        Session session(options);
        if (!session.resume())
            return text;
        if (!jobOfFiles.empty()) {
            for (const CloudFile &file : session.get<std::list<CloudFile>>(
                     [&](const auto &done) { session.api().getJobFileList(jobOfFiles, false, done); }))
                text += shown(file.fileName).toStdString() + '\n';
            return text;
        }
        auto list = session.get<std::list<JobDetails>>([&](const auto &done) { session.api().getAllJobDetails(done); });
        sortNewestFirst(list);
        for (const JobDetails &job : list)
            text += shown(job.jobId).toStdString() + suffix + '\t' + shown(job.jobName).toStdString() + '\n';
    } catch (const Failure &) {
        text.clear();
    }
    return text;
}

std::string positional(const Place &place, const Options &options)
{
    const CLI::Option *next = nullptr;
    size_t index = 0;
    for (const CLI::Option *option : place.command->get_options()) {
        if (!option->get_positional() || index++ > place.positionals.size())
            continue;
        if (index <= place.positionals.size() && option->get_items_expected_max() == 1)
            continue;
        next = option;
    }
    const std::string name = next ? next->get_name(true) : std::string();
    if (name == "JOB")
        return fromService(options, {}, "");
    if (name == "FROM" || name == "TO")
        return fromService(options, {}, ":") + ":folders\n";
    if (name == "PATTERN" || name == "NAME")
        return fromService(options, place.positionals.front(), "");
    return name == "PATH" || name == "JOB.json" ? ":files\n" : std::string();
}

std::string valuesOf(const CLI::Option &option)
{
    std::string kind = option.get_type_name();
    if (kind.find('|') != std::string::npos) {
        std::replace(kind.begin(), kind.end(), '|', '\n');
        return kind + '\n';
    }
    return kind == "FILE" ? ":files\n" : kind == "DIR" ? ":folders\n" : std::string();
}

} // namespace

Strings commandNames(const CLI::App &app)
{
    Strings names;
    for (const CLI::App *command : commandsOf(app))
        names.push_back(command->get_name());
    return names;
}

std::string mistakeIn(const CLI::App &app, const Strings &arguments)
{
    const CLI::App *command = nullptr;
    bool isValue = false;
    for (const std::string &argument : arguments) {
        if (argument == "--")
            break;
        if (isValue) {
            isValue = false;
        } else if (argument.size() > 2 && argument.compare(0, 2, "--") == 0) {
            const CLI::App &owner = command ? *command : app;
            const std::string name = argument.substr(0, argument.find('='));
            const CLI::Option *option = owner.get_option_no_throw(name);
            if (!option)
                return withNearest("there is no option " + name, name, optionNames(owner));
            isValue = takesValue(option) && name == argument;
        } else if (argument.empty() || argument.front() == '-' || command) {
            continue;
        } else if (!(command = commandIn(app, argument))) {
            return withNearest("there is no command \"" + argument + '"', argument, commandNames(app));
        }
    }
    return {};
}

std::string completions(CLI::App &app, Strings words, Options &options)
{
    std::string current = words.empty() ? std::string() : words.back();
    if (!words.empty())
        words.pop_back();
    if (current == "=")
        current.clear();
    const Place place = placeAfter(app, words);
    CLI::App &owner = place.command ? *place.command : app;
    try {
        for (CLI::App *given : {&app, &owner})
            for (CLI::Option *option : given->get_options())
                if (!option->get_positional() && option->count() > 0)
                    option->run_callback();
        if (place.command)
            Config().apply(app, *place.command, options.profile);
    } catch (const Failure &) {
        return {};
    } catch (const CLI::Error &) { // a value that its option does not take
        return {};
    }
    std::string text;
    if (place.option) {
        text = valuesOf(*place.option);
    } else if (!current.empty() && current.front() == '-') {
        for (const CLI::Option *option : owner.get_options())
            for (const std::string &name : option->get_lnames())
                text += "--" + name + '\t' + option->get_description() + '\n';
    } else if (!place.command) {
        for (const CLI::App *command : commandsOf(app))
            text += command->get_name() + '\t' + command->get_description() + '\n';
    } else {
        text = positional(place, options);
    }
    std::istringstream lines(text);
    std::string fitting;
    for (std::string line; std::getline(lines, line);)
        if (line.front() == ':' || line.compare(0, current.size(), current) == 0)
            fitting += line + '\n';
    return fitting;
}

} // namespace Velmora::Cli
