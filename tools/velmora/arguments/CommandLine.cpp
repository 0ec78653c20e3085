#include "arguments/CommandLine.h"

#include "arguments/Config.h"
#include "arguments/Help.h"
#include "arguments/Words.h"
#include "common/Terminal.h"
#include "manual/Manual.h"

#include <velmora/Version.h>

#include <optional>

namespace Velmora::Cli {

namespace {

constexpr const char *SharedGroup = "Service and output";

/// An option that may be given an empty value.
void addText(CLI::App &sub, const char *name, std::optional<std::string> &value, const char *help)
{
    sub.add_option_function<std::string>(
           name, [&value](const std::string &text) { value = text; }, help)
        ->type_name("TEXT");
}

} // namespace

CommandLine::CommandLine(Options &options)
    : m_options(options)
{
    m_app.name("velmora");
    m_app.set_version_flag("--version", std::string("velmora ") + velmoraVersion(), "Print the version");
    m_app.allow_windows_style_options(false); // a path may begin with a slash on Windows, too
    m_app.require_subcommand(1);
    m_app.footer(Help::Program);
    addCommonOptions(m_app);
    addRunCommands();
    addJobCommands();
    addFileCommands();
    addAccountCommands();
    addTagCommands();
    addServiceCommands();
    addHiddenCommands();
}

void CommandLine::addJobCommands()
{
    CLI::App *sub = add("jobs", "List your jobs, newest first", "", jobs);
    sub->add_flag("--watch", m_options.live, "Show the running jobs, until none is running");
    addJobId(*add("job", "Show a job's details", "", job));
    addJobId(*add("progress", "Show the progress of a job's simulations", "", progress));
    sub = add("stop", "Stop a job, or one of its simulations", Help::Stop, stop);
    addJobId(*sub);
    addSimulationId(*sub);
    addJobId(*add("archive", "Archive a job, then list your jobs", "", archive));
}

void CommandLine::addFileCommands()
{
    CLI::App *sub = add("files", "List files in the cloud", Help::Files, files);
    addJobId(*sub)->required(false);
    addSimulationId(*sub);
    addAllFiles(*sub);
    sub = add("upload", "Upload files and folders to a job", Help::Upload, upload);
    addJobId(*sub);
    sub->add_option("PATH", m_options.files, "Files, and folders with all that is in them")->type_name("");
    sub->add_option("--job", m_options.jobOption, "Older form of JOB; all arguments are files then")->type_name("ID");
    addSpeed(*sub);
    sub = add("download", "Download a job's files", Help::Download, download);
    addJobId(*sub);
    sub->add_option("PATTERN", m_options.files, "Names, folders or patterns of files")->type_name("");
    addFolder(*sub);
    addAllFiles(*sub);
    addSpeed(*sub);
    sub = add("sync", "Make a folder and a job's files alike", Help::Sync, sync);
    sub->add_option("FROM", m_options.source, "Folder, or JOB: for a job's files")->type_name("")->required();
    sub->add_option("TO", m_options.target, "Folder or JOB: that is changed")->type_name("")->required();
    sub->add_flag("--dry-run", m_options.dryRun, "Show what would be done, and do nothing");
    sub->add_flag("--delete", m_options.deleteOthers, "Delete from TO what FROM does not have");
    addAllFiles(*sub);
    addYes(*sub);
    addSpeed(*sub);
    sub = add("cat", "Write a job's file to standard output", "", cat);
    addJobId(*sub);
    addSpeed(*sub);
    sub->add_option("NAME", m_options.files, "Name as \"velmora files JOB\" lists it")
        ->type_name("")
        ->required()
        ->expected(1);
    sub = add("rm", "Delete a job's files", Help::Rm, rm);
    addJobId(*sub);
    sub->add_option("PATTERN", m_options.files, "Names or patterns of files")->type_name("")->required();
    sub->add_flag("--recursive", m_options.recursive, "Take folders, and match patterns with names in folders too");
    addAllFiles(*sub);
    addYes(*sub);
}

void CommandLine::addAccountCommands()
{
    add("accounts", "List your accounts", "", accounts);
    addAccountId(*add("balance", "Show an account's core hours and recent transactions", "", balance));
    CLI::App *sub = add("me", "Show your own details, or change them", Help::Me, me);
    addText(*sub, "--first-name", m_options.firstName, "New first name");
    addText(*sub, "--last-name", m_options.lastName, "New last name");
    addText(*sub, "--company", m_options.company, "New company");
    sub = add("hpc", "List the clusters that an account can run on", "", hpc);
    addAccountId(*sub);
    sub->add_flag("--preferred", m_options.preferred, "Preferred clusters only");
    sub = add("event", "Report an event to the service", Help::Event, event);
    sub->add_option("TYPE", m_options.eventType, "Kind of event")->type_name("")->required();
    sub->add_option("SOURCE", m_options.eventSource, "Source of the event")->type_name("")->required();
    sub->add_option("VALUE", m_options.eventValue, "Details of the event")->type_name("");
}

void CommandLine::addTagCommands()
{
    CLI::App *sub = add("tag", "Tag a job", "", tag);
    addJobId(*sub);
    addTag(*sub)->expected(1);
    sub = add("untag", "Remove a tag from a job", "", untag);
    addJobId(*sub);
    addTag(*sub)->expected(1);
    sub = add("tags", "List the tags of a job or an account", Help::Tags, tags);
    addJobId(*sub)->required(false)->excludes(
        sub->add_option("--account", m_options.accountId, "Account whose tags to list")->type_name("ID"));
    addTag(*add("find", "Find jobs by their tags", Help::Find, find));
}

void CommandLine::addServiceCommands()
{
    CLI::App *sub = add("login", "Sign in, for all commands that follow", Help::Login, login);
    sub->add_flag("--password-stdin", m_options.passwordFromInput, "Read the password from standard input");
    add("logout", "Forget who is signed in", Help::Logout, logout);
    sub = add("config", "Show the configuration, or change it", Help::Config, config);
    sub->add_option("CHANGE", m_options.change, "set KEY VALUE, or set KEY to remove it")
        ->type_name("")
        ->expected(0, 3);
    add("status", "Check that the service answers; no sign-in needed", "", status);
}

void CommandLine::addHiddenCommands()
{
    CLI::App *sub = m_app.add_subcommand("words", "Print what may follow, for completion")->group("");
    sub->add_option("WORD", m_words, "Words so far")->type_name("");
    sub->callback([this] {
        m_command = [this](const Options &) {
            Terminal::write(Terminal::Stream::Output, QString::fromStdString(completions(m_app, m_words, m_options)));
        };
    });
    m_app.add_subcommand("manual", "Print the manual page")->group("")->callback([this] {
        m_command = [this](const Options &) {
            Terminal::write(Terminal::Stream::Output, QString::fromStdString(manualPage(m_app, SharedGroup)));
        };
    });
}

CLI::App *CommandLine::add(const char *name, const char *summary, const char *help, Command *function)
{
    CLI::App *sub = m_app.add_subcommand(name, summary);
    sub->footer(help);
    sub->callback([this, function] { m_command = function; });
    addCommonOptions(*sub);
    return sub;
}

void CommandLine::addCommonOptions(CLI::App &app)
{
    app.add_option("--user", m_options.user, "E-mail address to sign in with")->type_name("EMAIL")->group(SharedGroup);
    app.add_option("--profile", m_options.profile, "Profile of the configuration file to use")
        ->type_name("NAME")
        ->group(SharedGroup);
    app.add_option("--mfa", m_options.mfaCode, "One-time code, for users who need one")
        ->type_name("CODE")
        ->group(SharedGroup);
    app.add_option("--portal", m_options.portal, "Portal of the service; production unless given")
        ->type_name("test|development|production")
        ->check(CLI::IsMember({"test", "development", "production"}).description(""))
        ->group(SharedGroup);
    app.add_option("--host", m_options.host, "Host of the service instead of a portal's")
        ->type_name("HOST[:PORT]")
        ->group(SharedGroup);
    app.add_option("--ca", m_options.caFile, "PEM file of a certificate authority to trust as well")
        ->type_name("FILE")
        ->group(SharedGroup);
    app.add_option("--timeout", m_options.timeoutSeconds,
                   "Seconds to wait for an answer or for bytes to move; 60 unless given, 0 for no limit")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, 86400).description(""))
        ->group(SharedGroup);
    app.add_flag("--json", m_options.json, "One JSON document on standard output, also for a failure")
        ->group(SharedGroup);
    app.add_option("--progress", m_options.progress,
                   "How progress is written to standard error: json for one object per line")
        ->type_name("json|lines|none")
        ->check(CLI::IsMember({"json", "lines", "none"}).description(""))
        ->group(SharedGroup);
    app.add_flag("--verbose", m_options.verbose, "Write the library's log to standard error")->group(SharedGroup);
    app.add_flag("--quiet", m_options.quiet, "No progress and no notices")->group(SharedGroup);
}

CLI::Option *CommandLine::addJobId(CLI::App &sub)
{
    return sub.add_option("JOB", m_options.jobId, "Job id")->type_name("")->required();
}

void CommandLine::addSimulationId(CLI::App &sub)
{
    sub.add_option("SIMULATION", m_options.simulationId, "Simulation id")->type_name("");
}

void CommandLine::addJobFile(CLI::App &sub)
{
    sub.add_option("JOB.json", m_options.jobFile, "Job file")->type_name("")->required();
}

void CommandLine::addAccountId(CLI::App &sub)
{
    sub.add_option("ACCOUNT", m_options.accountId, "Account id")->type_name("")->required();
}

CLI::Option *CommandLine::addTag(CLI::App &sub)
{
    return sub.add_option("TAG", m_options.tags, "Tag")->type_name("")->required();
}

void CommandLine::addFolder(CLI::App &sub)
{
    sub.add_option("--to", m_options.folder, "Folder to save files in; unless given, one named after the job")
        ->type_name("DIR");
}

void CommandLine::addPatience(CLI::App &sub)
{
    sub.add_option("--patience", m_options.patienceSeconds,
                   "Seconds to keep trying while the service gives no answer; 300 unless given")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, 86400).description(""));
}

void CommandLine::addAllFiles(CLI::App &sub) { sub.add_flag("--all", m_options.allFiles, "Include hidden files"); }

void CommandLine::addYes(CLI::App &sub) { sub.add_flag("--yes", m_options.yes, "Ask nothing"); }

void CommandLine::addSpeed(CLI::App &sub)
{
    sub.add_option("--bwlimit", m_options.bytesPerSecond,
                   "Bytes per second at most, as 500k or 2M; no limit unless given")
        ->transform(CLI::AsSizeValue(true).description(""))
        ->type_name("BYTES");
    sub.add_option("--transfers", m_options.transfers, "Files that move at a time; the program chooses unless given")
        ->type_name("N")
        ->check(CLI::Range(1, 64).description(""));
}

void CommandLine::configure()
{
    CLI::App &command = *m_app.get_subcommands().front();
    if (command.get_group().empty() || command.get_name() == "config")
        return;
    Config().apply(m_app, command, m_options.profile);
}

} // namespace Velmora::Cli
