/// @file CommandLine.h
/// The definitions of all commands and options.
#ifndef VELMORA_CLI_COMMANDLINE_H
#define VELMORA_CLI_COMMANDLINE_H

#include "commands/Commands.h"
#include "common/Options.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace Velmora::Cli {

/// Defines the commands: each is one entry in one of the groups, and one function.
class CommandLine {
public:
    /// @param options receives the values; it must outlive this object.
    explicit CommandLine(Options &options);

    CLI::App &app() { return m_app; }
    /// The chosen command, once the arguments are parsed.
    const std::function<Command> &command() const { return m_command; }
    /// Completes the options of the chosen command by the configuration file. Throws `Failure`.
    void configure();

private:
    void addRunCommands();
    void addJobCommands();
    void addFileCommands();
    void addAccountCommands();
    void addTagCommands();
    void addServiceCommands();
    void addHiddenCommands();

    CLI::App *add(const char *name, const char *summary, const char *help, Command *function);
    void addCommonOptions(CLI::App &app);
    CLI::Option *addJobId(CLI::App &sub);
    void addSimulationId(CLI::App &sub);
    void addJobFile(CLI::App &sub);
    void addAccountId(CLI::App &sub);
    CLI::Option *addTag(CLI::App &sub);
    void addFolder(CLI::App &sub);
    void addPatience(CLI::App &sub);
    void addAllFiles(CLI::App &sub);
    void addYes(CLI::App &sub);
    void addSpeed(CLI::App &sub);

    CLI::App m_app{"Run simulations in the cloud, from a terminal or a script."};
    Options &m_options;
    std::function<Command> m_command;
    std::vector<std::string> m_words;
};

} // namespace Velmora::Cli

#endif
