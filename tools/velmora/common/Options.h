/// @file Options.h
/// Command line options, exit codes, and the error that ends a command.
#ifndef VELMORA_CLI_OPTIONS_H
#define VELMORA_CLI_OPTIONS_H

#include <velmora/Records.h>

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Velmora::Cli {

/// The program's exit codes; `velmora --help` documents them.
enum class ExitCode : int {
    Done = 0,
    Refused = 1,      ///< the service refused, or a file was not transferred
    WrongUse = 2,     ///< bad arguments, a job file that is not valid, or a local file that cannot be read
    NoConnection = 3, ///< no answer came
    NotFinished = 4,  ///< the job ended without finishing
    Interrupted = 130 ///< Ctrl-C; jobs at the service keep running
};

/// The arguments of every command, filled by the command line and the environment.
struct Options {
    std::string user;
    std::string password; ///< from the environment, a prompt or standard input only
    bool passwordFromInput = false;
    std::string mfaCode;
    std::string portal = "production";
    std::string host; ///< HOST[:PORT]; empty: the portal's own
    std::string caFile;
    std::string profile;             ///< section of the configuration file
    std::int64_t bytesPerSecond = 0; ///< for uploads and for downloads; 0 for no limit
    int transfers = 0;               ///< that move bytes at a time; 0 for the library's choice
    bool json = false;
    bool verbose = false;
    bool quiet = false;
    int timeoutSeconds = 60;   ///< for one answer; 0 for no limit
    int patienceSeconds = 300; ///< how long to follow a job without an answer
    std::string progress;      ///< "lines", "json", "none"; empty: what suits standard error

    std::string jobFile;
    std::string jobId;
    std::string simulationId;
    std::string accountId;
    std::string hpcId;

    std::vector<std::string> files; ///< local paths, or names and patterns of cloud files
    std::string folder;             ///< where downloads go; empty: one named after the job
    bool allFiles = false;          ///< include hidden files
    bool noUpload = false;
    bool noDownload = false;
    bool noWait = false;
    bool again = false;  ///< start a new job whatever the journal says
    std::string journal; ///< empty: beside the job file
    std::string each;    ///< parameters of a sweep, with lists in braces
    std::string csvFile; ///< for a table of the simulations' summaries
    bool yes = false;    ///< ask nothing
    bool recursive = false;
    bool dryRun = false;
    bool deleteOthers = false;       ///< what the source of `sync` does not have
    std::string source;              ///< of `sync`: a folder, or JOB: for a job's files
    std::string target;              ///< likewise
    std::string jobOption;           ///< `--job`, the older form of `upload`
    bool live = false;               ///< go on showing the list of jobs
    std::vector<std::string> change; ///< of the configuration: "set", a key, a value

    bool preferred = false; ///< the user's preferred clusters only
    std::optional<std::string> firstName;
    std::optional<std::string> lastName;
    std::optional<std::string> company;
    std::string eventType;
    std::string eventSource;
    std::string eventValue;
    std::vector<std::string> tags;
};

/// Fills empty options from VELMORA_USER, VELMORA_PASSWORD and VELMORA_MFA.
void fillFromEnvironment(Options &options);

/// The host that requests go to with these options.
std::string hostOf(const Options &options);

/// An argument, quoted for a shell where needed.
QString quoted(const std::string &argument);
/// The options that select the same service and user, as typed in a shell.
QString sameOptions(const Options &options);

/// Ends a command. Thrown outside event loops only; `main` prints it.
class Failure {
public:
    /// An error that the client found.
    Failure(ExitCode code, const QString &title, const QString &message);
    /// An error that the library reported.
    Failure(ExitCode code, ApiError error, const QString &message);

    /// Adds a member to the JSON document, beside "error".
    Failure &with(const QString &key, const QJsonValue &value);
    Failure &with(const QJsonObject &members);

    ExitCode code() const { return m_code; }
    /// For a person, without markup.
    QString message() const { return m_message; }
    QJsonObject toJson() const;

private:
    ExitCode m_code;
    ApiError m_error;
    QString m_message;
    QJsonObject m_more;
};

} // namespace Velmora::Cli

#endif
