/// @file Options.h
/// What the user asked for, and how the program ends.
#ifndef VELMORA_CLI_OPTIONS_H
#define VELMORA_CLI_OPTIONS_H

#include <velmora/Records.h>

#include <QJsonObject>
#include <QString>

#include <optional>
#include <string>
#include <vector>

namespace Velmora::Cli {

/// The program's exit codes; `velmora --help` documents them.
enum class ExitCode : int {
    Done = 0,
    Refused = 1,      ///< the service answered and said no, or a file was not transferred
    WrongUse = 2,     ///< bad arguments, a job file that is not valid, or a local file that cannot be read
    NoConnection = 3, ///< no answer came
    NotFinished = 4,  ///< the job ended otherwise than finished
    Interrupted = 130 ///< Ctrl-C; what runs at the service goes on
};

/// The arguments of every command, filled by the command line and the environment.
struct Options {
    std::string user;
    std::string password; ///< from the environment or a prompt only
    std::string mfaCode;
    std::string portal = "production";
    std::string host; ///< HOST[:PORT]; empty: the portal's own
    std::string caFile;
    bool json = false;
    bool verbose = false;
    bool quiet = false;
    int timeoutSeconds = 60;   ///< for one answer; 0 waits for ever
    int patienceSeconds = 300; ///< how long following a job outlasts a lost connection

    std::string jobFile;
    std::string jobId;
    std::string simulationId;
    std::string accountId;
    std::string hpcId;

    std::vector<std::string> files; ///< local paths, or names and patterns of cloud files
    std::string folder;             ///< where downloads go; empty: one named after the job
    bool allFiles = false;          ///< hidden files, too
    bool noUpload = false;
    bool noDownload = false;

    bool preferred = false; ///< the user's preferred clusters only
    std::optional<std::string> firstName;
    std::optional<std::string> lastName;
    std::optional<std::string> company;
    std::string eventType;
    std::string eventSource;
    std::string eventValue;
    std::vector<std::string> tags;
};

/// Fills what the arguments left open from VELMORA_USER, VELMORA_PASSWORD and VELMORA_MFA.
void fillFromEnvironment(Options &options);

/// The host that requests go to with these options.
std::string hostOf(const Options &options);

/// An argument as it is typed in a shell.
QString quoted(const std::string &argument);
/// The options, as typed again, that reach the same service as the same user.
QString sameOptions(const Options &options);

/// Ends a command. Thrown outside of event loops only; `main` shows it.
class Failure {
public:
    /// The client's own verdict.
    Failure(ExitCode code, const QString &title, const QString &message);
    /// A verdict of the service's.
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
