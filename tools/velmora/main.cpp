/// @file main.cpp
/// From arguments to an exit code.
#include "arguments/CommandLine.h"
#include "arguments/Words.h"
#include "common/Progress.h"
#include "common/Terminal.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QLoggingCategory>

#include <algorithm>
#include <exception>

using namespace Velmora::Cli;

namespace {

/// The arguments in the order that CLI11 expects, the last one first.
std::vector<std::string> inOrder(const std::vector<std::string> &given)
{
    std::vector<std::string> arguments;
    for (std::string argument : given) {
        // CLI11 would take the argument after it for the value of "--option=".
        const bool emptyValue = argument.size() > 3 && argument.compare(0, 2, "--") == 0 && argument.back() == '=' &&
                                argument.find('=') == argument.size() - 1;
        if (emptyValue)
            argument.pop_back();
        arguments.push_back(argument);
        if (emptyValue)
            arguments.emplace_back();
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

int fail(const Failure &failure, const Options &options)
{
    if (options.json)
        Terminal::write(Terminal::Stream::Output, QString::fromUtf8(QJsonDocument(failure.toJson()).toJson()));
    if (options.progress == "json") {
        writeEvent("error",
                   {{QStringLiteral("text"), failure.message()}, {QStringLiteral("exitCode"), int(failure.code())}});
        return int(failure.code());
    }
    // The terminal has written its "^C" at the cursor.
    const bool midLine = failure.code() == ExitCode::Interrupted && Terminal::isTerminal(Terminal::Stream::Error);
    Terminal::write(
        Terminal::Stream::Error,
        QStringLiteral("%1velmora: %2\n").arg(midLine ? QStringLiteral("\n") : QString(), failure.message()));
    return int(failure.code());
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Options options;
    CommandLine line(options);
    const std::vector<std::string> arguments = Terminal::arguments(argc, argv);
    try {
        line.app().parse(inOrder(arguments));
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return line.app().exit(error);
        const std::string mistake = mistakeIn(line.app(), arguments);
        options.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        return fail(Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                            QStringLiteral("%1\nTry: velmora --help")
                                .arg(QString::fromStdString(mistake.empty() ? error.what() : mistake))),
                    options);
    }
    QLoggingCategory::setFilterRules(options.verbose ? QStringLiteral("velmora.debug=true")
                                                     : QStringLiteral("velmora=false"));
    try {
        fillFromEnvironment(options);
        line.configure();
        line.command()(options);
        return int(ExitCode::Done);
    } catch (const Failure &failure) {
        return fail(failure, options);
    } catch (const std::exception &error) {
        return fail(Failure(ExitCode::WrongUse, QStringLiteral("Error"), QString::fromLocal8Bit(error.what())),
                    options);
    }
}
