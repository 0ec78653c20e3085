/// @file main.cpp
/// The command line: arguments, help, exit codes.
#include "Commands.h"
#include "Manual.h"
#include "Options.h"
#include "Terminal.h"

#include <velmora/Version.h>

#include <CLI/CLI.hpp>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QLoggingCategory>

#include <algorithm>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace Velmora::Cli;

namespace {

constexpr const char *SharedGroup = "Service and output";

constexpr const char *ProgramHelp = R"(Exit codes:
  0    done; for run and watch: the job finished
  1    the service refused, or a file was not transferred
  2    wrong use: bad arguments, a job file that is not valid, a local file that cannot be read
  3    no connection to the service
  4    the job ended without finishing (stopped, failed)
  130  interrupted by Ctrl-C; transfers are cancelled, a submitted job goes on at the service

Environment:
  VELMORA_USER      e-mail address to sign in with
  VELMORA_PASSWORD  password; asked for on the terminal when it is not set
  VELMORA_MFA       one-time code for users with multi-factor authentication
  VELMORA_API_URL   HOST[:PORT] of the service, as --host

Results go to standard output, progress and messages to standard error.
"velmora COMMAND --help" explains a command.)";

constexpr const char *RunHelp = R"(JOB.json is an object with these keys:
  jobName                  name shown in lists; a time stamp is added to it
  mainFile                 main input file (trninp, revinp or bldinp)
  dependentFilesList       further input files; paths start at the folder of JOB.json
  dependentFilesAliasList  one alias for each of them, in the same order
  operation                0 MPI, 1 simulation, 2 review, 3 build
  simulations              solver parameters, one text per simulation
  numberOfParts            MPI: processes per simulation
  coresRequired            otherwise: cores per simulation, 1 to 128
  coreHourEstimate         core hours per simulation
  ramEstimate              memory in MB, below 1843200
  jobPrecision             0 single, 1 double
  solverTag                solver image; leave it out to let the service choose
  accountID                account to charge; --account wins over it
  originApplication        submitting application, "velmora" unless given
The job id is filled in. The main file and the further input files are uploaded first, and the job is
submitted when all of them have arrived. When it has ended, finished or not, its results are downloaded,
each simulation's files into a folder of their own. Ctrl-C cancels transfers and lists what is left, but
leaves a submitted job running and prints the command to watch it again.

Example:
  velmora run examples/jobs/beam-single.json --account ACCOUNT)";

constexpr const char *WatchHelp = R"(Follows a submitted job until it ends, as run does. Its results stay at the
service; "velmora download JOB" downloads them. Ctrl-C leaves the job running.)";

constexpr const char *FilesHelp =
    R"(Without JOB: the files of all your jobs. With SIMULATION: the files of that simulation only.)";

constexpr const char *UploadHelp =
    R"(Files are encrypted with the job's key on this machine. The name in the cloud is the file's name
without its folder. A file of the same name that the job already has is replaced.)";

constexpr const char *DownloadHelp =
    R"(FILE is a name as "velmora files JOB" lists it, a folder such as a simulation, or a pattern with *, ?
or [...] for the whole name or its last part; put patterns in quotes. Without FILE all files are downloaded,
including the inputs. They keep their paths below the job, so that files of the same name in several
simulations stay separate. A local file of that name is replaced when its download is complete.

Examples:
  velmora download job-1f2e3d4c
  velmora download job-1f2e3d4c sim-1 'summary.*' --to results)";

constexpr const char *StopHelp = R"(Without SIMULATION: every simulation of the job is stopped.)";

constexpr const char *ValidateHelp = R"(Runs every check on a job file and names each one that fails. Nothing is sent.
Exit code 0 when all pass, 2 otherwise.)";

constexpr const char *MeHelp =
    R"(With one of the options the details are changed first; the others stay as they are.

Example:
  velmora me --company 'Field Aerodynamics')";

constexpr const char *EventHelp =
    R"(Events tell the service what its users do, such as TYPE "open" of SOURCE "mesher".)";

constexpr const char *TagsHelp = R"(Without JOB and --account: the tags of all your accounts.)";

constexpr const char *FindHelp = R"(Lists your jobs that carry all of these tags.)";

constexpr const char *LoginHelp = R"(Checks that the credentials are accepted. Nothing is stored: every command signs in
by itself, with VELMORA_USER and VELMORA_PASSWORD or by asking on the terminal.)";

void addCommonOptions(CLI::App &app, Options &options)
{
    app.add_option("--user", options.user, "E-mail address to sign in with")->type_name("EMAIL")->group(SharedGroup);
    app.add_option("--mfa", options.mfaCode, "One-time code, for users who need one")
        ->type_name("CODE")
        ->group(SharedGroup);
    app.add_option("--portal", options.portal, "Portal of the service; production unless given")
        ->type_name("test|development|production")
        ->check(CLI::IsMember({"test", "development", "production"}).description(""))
        ->group(SharedGroup);
    app.add_option("--host", options.host, "Host of the service instead of a portal's")
        ->type_name("HOST[:PORT]")
        ->group(SharedGroup);
    app.add_option("--ca", options.caFile, "PEM file of a certificate authority to trust as well")
        ->type_name("FILE")
        ->group(SharedGroup);
    app.add_option("--timeout", options.timeoutSeconds,
                   "Seconds to wait for an answer or for bytes to move; 60 unless given, 0 for no limit")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, 86400).description(""))
        ->group(SharedGroup);
    app.add_flag("--json", options.json, "One JSON document on standard output, also for a failure")
        ->group(SharedGroup);
    app.add_flag("--verbose", options.verbose, "Write the library's log to standard error")->group(SharedGroup);
    app.add_flag("--quiet", options.quiet, "No progress and no notices")->group(SharedGroup);
}

/// Defines the commands: each is one entry here and one function.
class CommandLine {
public:
    explicit CommandLine(Options &options)
        : m_options(options)
    {
        m_app.name("velmora");
        m_app.set_version_flag("--version", std::string("velmora ") + velmoraVersion(), "Print the version");
        m_app.allow_windows_style_options(false); // a path may begin with a slash on Windows, too
        m_app.require_subcommand(1);
        m_app.footer(ProgramHelp);
        addCommonOptions(m_app, m_options);

        CLI::App *run = add("run", "Upload a job's files, run it, download its results", RunHelp, Velmora::Cli::run);
        addJobFile(*run);
        run->add_option("--account", m_options.accountId, "Account to charge")->type_name("ID");
        run->add_option("--hpc", m_options.hpcId, "Cluster to run on; the service chooses unless given")
            ->type_name("ID");
        addFolder(*run);
        run->add_flag("--no-upload", m_options.noUpload, "Upload nothing; the job needs no local files");
        run->add_flag("--no-download", m_options.noDownload, "Leave the results at the service");
        addPatience(*run);
        CLI::App *watch = add("watch", "Follow a job to its end", WatchHelp, Velmora::Cli::watch);
        addJobId(*watch);
        addPatience(*watch);
        add("jobs", "List your jobs, newest first", "", Velmora::Cli::jobs);
        addJobId(*add("job", "Show a job's details", "", Velmora::Cli::job));
        addJobId(*add("progress", "Show the progress of a job's simulations", "", Velmora::Cli::progress));
        CLI::App *stop = add("stop", "Stop a job, or one of its simulations", StopHelp, Velmora::Cli::stop);
        addJobId(*stop);
        stop->add_option("SIMULATION", m_options.simulationId, "Simulation id")->type_name("");
        addJobId(*add("archive", "Archive a job, then list your jobs", "", Velmora::Cli::archive));
        CLI::App *files = add("files", "List files in the cloud", FilesHelp, Velmora::Cli::files);
        addJobId(*files)->required(false);
        files->add_option("SIMULATION", m_options.simulationId, "Simulation id")->type_name("");
        files->add_flag("--all", m_options.allFiles, "Include hidden files");
        CLI::App *upload = add("upload", "Upload files to a job", UploadHelp, Velmora::Cli::upload);
        m_localFiles.push_back(
            upload->add_option("FILE", m_options.files, "Files to upload")->type_name("")->required());
        upload->add_option("--job", m_options.jobId, "Job to upload to")->type_name("ID")->required();
        CLI::App *download = add("download", "Download a job's files", DownloadHelp, Velmora::Cli::download);
        addJobId(*download);
        download->add_option("FILE", m_options.files, "Names or patterns of files")->type_name("");
        addFolder(*download);
        download->add_flag("--all", m_options.allFiles, "Include hidden files");
        CLI::App *rm = add("rm", "Delete a job's file", "", Velmora::Cli::rm);
        addJobId(*rm);
        rm->add_option("FILE", m_options.files, "Name as \"velmora files JOB\" lists it")
            ->type_name("")
            ->required()
            ->expected(1);
        addAccountCommands();
        addTagCommands();
        addJobFile(*add("validate", "Check a job file", ValidateHelp, Velmora::Cli::validate));
        add("login", "Check that you can sign in", LoginHelp, Velmora::Cli::login);
        add("status", "Check that the service answers; no sign-in needed", "", Velmora::Cli::status);

        CLI::App *words = m_app.add_subcommand("words", "Print what may follow, for completion")->group("");
        words->add_option("COMMAND", m_wordsAfter, "Command")->type_name("");
        words->callback([this] { m_command = [this](const Options &) { printWords(); }; });
        m_app.add_subcommand("manual", "Print the manual page")->group("")->callback([this] {
            m_command = [this](const Options &) {
                Terminal::write(Terminal::Stream::Output, QString::fromStdString(manualPage(m_app, SharedGroup)));
            };
        });
    }

    CLI::App &app() { return m_app; }
    const std::function<Command> &command() const { return m_command; }

private:
    void addAccountCommands()
    {
        add("accounts", "List your accounts", "", Velmora::Cli::accounts);
        addAccountId(
            *add("balance", "Show an account's core hours and recent transactions", "", Velmora::Cli::balance));
        CLI::App *me = add("me", "Show your own details, or change them", MeHelp, Velmora::Cli::me);
        addText(*me, "--first-name", m_options.firstName, "New first name");
        addText(*me, "--last-name", m_options.lastName, "New last name");
        addText(*me, "--company", m_options.company, "New company");
        CLI::App *hpc = add("hpc", "List the clusters that an account can run on", "", Velmora::Cli::hpc);
        addAccountId(*hpc);
        hpc->add_flag("--preferred", m_options.preferred, "Preferred clusters only");
        CLI::App *event = add("event", "Report an event to the service", EventHelp, Velmora::Cli::event);
        event->add_option("TYPE", m_options.eventType, "Kind of event")->type_name("")->required();
        event->add_option("SOURCE", m_options.eventSource, "Source of the event")->type_name("")->required();
        event->add_option("VALUE", m_options.eventValue, "Details of the event")->type_name("");
    }
    void addTagCommands()
    {
        CLI::App *tag = add("tag", "Tag a job", "", Velmora::Cli::tag);
        addJobId(*tag);
        addTag(*tag)->expected(1);
        CLI::App *untag = add("untag", "Remove a tag from a job", "", Velmora::Cli::untag);
        addJobId(*untag);
        addTag(*untag)->expected(1);
        CLI::App *tags = add("tags", "List the tags of a job or an account", TagsHelp, Velmora::Cli::tags);
        addJobId(*tags)->required(false)->excludes(
            tags->add_option("--account", m_options.accountId, "Account whose tags to list")->type_name("ID"));
        addTag(*add("find", "Find jobs by their tags", FindHelp, Velmora::Cli::find));
    }
    CLI::App *add(const char *name, const char *summary, const char *help, Command *function)
    {
        CLI::App *sub = m_app.add_subcommand(name, summary);
        sub->footer(help);
        sub->callback([this, function] { m_command = function; });
        addCommonOptions(*sub, m_options);
        return sub;
    }
    CLI::Option *addJobId(CLI::App &sub)
    {
        return sub.add_option("JOB", m_options.jobId, "Job id")->type_name("")->required();
    }
    void addJobFile(CLI::App &sub)
    {
        m_localFiles.push_back(sub.add_option("JOB.json", m_options.jobFile, "Job file")->type_name("")->required());
    }
    void addAccountId(CLI::App &sub)
    {
        sub.add_option("ACCOUNT", m_options.accountId, "Account id")->type_name("")->required();
    }
    CLI::Option *addTag(CLI::App &sub)
    {
        return sub.add_option("TAG", m_options.tags, "Tag")->type_name("")->required();
    }
    /// An option that may be given an empty value.
    static void addText(CLI::App &sub, const char *name, std::optional<std::string> &value, const char *help)
    {
        sub.add_option_function<std::string>(
               name, [&value](const std::string &text) { value = text; }, help)
            ->type_name("TEXT");
    }
    void addFolder(CLI::App &sub)
    {
        sub.add_option("--to", m_options.folder, "Folder to save files in; unless given, one named after the job")
            ->type_name("DIR");
    }
    void addPatience(CLI::App &sub)
    {
        sub.add_option("--patience", m_options.patienceSeconds,
                       "Seconds to keep trying while the service gives no answer; 300 unless given")
            ->type_name("SECONDS")
            ->check(CLI::Range(0, 86400).description(""));
    }

    /// One line for each word, with the kind of an option's value; "- FILE" where arguments are local files.
    void printWords() const
    {
        const CLI::App *app = m_wordsAfter.empty() ? &m_app : m_app.get_subcommand(m_wordsAfter);
        std::string text;
        for (const CLI::App *sub :
             app->get_subcommands([](const CLI::App *candidate) { return !candidate->get_group().empty(); }))
            text += sub->get_name() + '\n';
        for (const CLI::Option *option : app->get_options()) {
            if (std::find(m_localFiles.begin(), m_localFiles.end(), option) != m_localFiles.end())
                text += "- FILE\n";
            for (const std::string &name : option->get_lnames())
                text +=
                    "--" + name + (option->get_items_expected_max() > 0 ? ' ' + option->get_type_name() : "") + '\n';
        }
        Terminal::write(Terminal::Stream::Output, QString::fromStdString(text));
    }

    CLI::App m_app{"Run simulations in the cloud, from a terminal or a script."};
    Options &m_options;
    std::function<Command> m_command;
    std::vector<const CLI::Option *> m_localFiles;
    std::string m_wordsAfter;
};

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

int fail(const Failure &failure, bool json)
{
    if (json)
        Terminal::write(Terminal::Stream::Output, QString::fromUtf8(QJsonDocument(failure.toJson()).toJson()));
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
        const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        return fail(Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                            QStringLiteral("%1\nTry: velmora --help").arg(QString::fromUtf8(error.what()))),
                    json);
    }
    fillFromEnvironment(options);
    QLoggingCategory::setFilterRules(options.verbose ? QStringLiteral("velmora.debug=true")
                                                     : QStringLiteral("velmora=false"));
    try {
        line.command()(options);
        return int(ExitCode::Done);
    } catch (const Failure &failure) {
        return fail(failure, options.json);
    } catch (const std::exception &error) {
        return fail(Failure(ExitCode::WrongUse, QStringLiteral("Error"), QString::fromLocal8Bit(error.what())),
                    options.json);
    }
}
