/// @file Journal.h
/// What a run has done so far, in a file beside the job file, so that the same command goes on.
#ifndef VELMORA_CLI_JOURNAL_H
#define VELMORA_CLI_JOURNAL_H

#include "common/Options.h"
#include "transfers/LocalFile.h"
#include "transfers/Transfer.h"

#include <QFile>
#include <QStringList>

#include <map>
#include <set>

namespace Velmora::Cli {

/// A file of one JSON object per line. A line counts when it is whole: each one is appended in one call, and what a
/// killed process left of its last one is cut off. One process at a time holds the file.
class Journal {
public:
    /// Opens and reads it. Throws `Failure` when another process holds it, or when it is no journal. Warns when the
    /// folder cannot be written; nothing is kept then.
    explicit Journal(const Options &options);

    enum class Submission {
        None,
        Begun, ///< whether the service received it is not known
        Done
    };

    const QString &path() const { return m_path; }
    const std::string &jobId() const { return m_jobId; } ///< empty: nothing was begun
    const std::string &host() const { return m_host; }
    const std::string &accountId() const { return m_accountId; }
    const std::string &hpcId() const { return m_hpcId; }
    Submission submission() const { return m_submission; }
    const QJsonObject &definition() const { return m_definition; } ///< of what was submitted

    /// Forgets everything but the account. The file stays as it is until a job is begun.
    void forget();
    /// Throws `Failure` when it cannot be kept, as the next one does.
    void begin(const std::string &jobId, const std::string &host, const std::string &accountId,
               const std::string &hpcId);
    void note(Submission submission, const QJsonObject &definition);

    /// Notes that a transfer is done, with the local file as it is now.
    void note(const Transfer &transfer);
    /// Whether the job has this very input: the same size and time, or the same content.
    bool isSent(const QString &path) const;
    /// Whether the result is here, as it was fetched.
    bool isFetched(const Transfer &download) const;
    /// The names of the inputs that were sent.
    std::set<QString> sent() const;

private:
    void read();
    bool restart();
    void take(const QJsonObject &line);
    bool append(const QJsonObject &line);
    void appendForSure(const QJsonObject &line);

    QString m_path;
    QFile m_file; ///< not open when nothing is kept
    std::string m_jobId;
    std::string m_host;
    std::string m_accountId;
    std::string m_hpcId;
    Submission m_submission = Submission::None;
    QJsonObject m_definition;
    std::map<QString, LocalFile> m_sent; ///< by name in the cloud
    struct Fetched {
        LocalFile file;
        QString version; ///< of the file in the cloud
    };
    std::map<QString, Fetched> m_fetched; ///< by local path
};

} // namespace Velmora::Cli

#endif
