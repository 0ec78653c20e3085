/// @file Submission.h
/// A job file's way to the service: the account, what the job costs, its inputs, and exactly one submission.
#ifndef VELMORA_CLI_SUBMISSION_H
#define VELMORA_CLI_SUBMISSION_H

#include "run/JobFile.h"
#include "run/Journal.h"
#include "session/Session.h"

#include <optional>

namespace Velmora::Cli {

/// The account of the options or the job file, or else the user's only one. Throws `Failure`.
std::string accountToCharge(Session &session, const std::string &given);

/// Shows the job's estimate and the account's balance. Where it does not suffice the user is asked, unless `--yes`.
/// Throws `Failure` when the answer is no, or nobody can be asked.
void checkCost(Session &session, const Options &options, const JobSubmit &job);

/// The files have no folders at the service, nor has the submission.
void dropFolders(JobSubmit &job);

/// The submission of a run. What an earlier run with the same journal did is not done again.
class Submission {
public:
    /// All must outlive it.
    Submission(Session &session, const Options &options, const JobFile &file, Journal &journal);

    /// The job that an earlier run submitted; none if the service has none. Throws `Failure`, also when the job file
    /// or its inputs have changed since.
    std::optional<JobDetails> earlier();
    /// Uploads the inputs, then submits. `uploads` receives the outcome of each upload. Throws `Failure`.
    JobDetails submit(const QStringList &inputs, Batch &uploads);
    /// Throws `Failure` unless what was submitted is what would be submitted now.
    void checkUnchanged() const;

private:
    void checkHost() const;
    std::optional<JobDetails> find(const ApiError *lost) const;
    bool canGoOn(const QStringList &inputs) const;
    void begin(const QStringList &inputs);
    bool keepSent(Batch &uploads) const;
    JobDetails submitOnce();

    Session &m_session;
    const Options &m_options;
    const JobFile &m_file;
    Journal &m_journal;
    JobSubmit m_job;
};

} // namespace Velmora::Cli

#endif
