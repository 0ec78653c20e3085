#include "run/Submission.h"

#include "common/Output.h"
#include "common/Progress.h"
#include "transfers/Files.h"

#include <QFileInfo>

#include <algorithm>
#include <map>

namespace Velmora::Cli {

namespace {

using State = Journal::Submission;

std::string baseName(const std::string &path)
{
    return QFileInfo(QString::fromStdString(path)).fileName().toStdString();
}

QString hours(double value) { return QString::number(value, 'g', 6); }

/// Whether the service may have received what got this answer.
bool mayHaveArrived(const ApiError &error)
{
    return error.errorCode == 0 || error.errorCode == 408 || error.errorCode == 409 || error.errorCode >= 500;
}

} // namespace

std::string accountToCharge(Session &session, const std::string &given)
{
    if (!given.empty())
        return given;
    const auto accounts =
        session.get<std::list<AccountDetails>>([&](const auto &done) { session.api().getAccountList(done); });
    if (accounts.size() == 1)
        return accounts.front().accountId;
    QString message = QStringLiteral("no account to charge: give --account, or accountID in the job file");
    for (const AccountDetails &account : accounts)
        message += QStringLiteral("\n  %1  %2").arg(shown(account.accountId), shown(account.accountName));
    throw Failure(ExitCode::WrongUse, QStringLiteral("No Account"), message);
}

void checkCost(Session &session, const Options &options, const JobSubmit &job)
{
    const auto answer =
        session.ask<AccountBalance>([&](const auto &done) { session.api().getAccountBalance(job.accountID, done); });
    if (answer.error.errorCode == 0)
        session.check(answer.error);
    if (!succeeded(answer.error)) { // not every user may see it
        notice(options, QStringLiteral("estimated at %1 core hours; the balance of %2 cannot be seen: %3")
                            .arg(hours(job.coreHourEstimate), shown(job.accountID), errorText(answer.error)));
        return;
    }
    const double available = answer.result.coreHoursAvailable;
    const QString text = QStringLiteral("estimated at %1 core hours; %2 has %3")
                             .arg(hours(job.coreHourEstimate), shown(job.accountID), hours(available));
    if (job.coreHourEstimate <= available || options.yes)
        notice(options, text);
    else
        confirm(options, text + QStringLiteral(", which does not suffice. Submit all the same?"));
}

void dropFolders(JobSubmit &job)
{
    job.mainFile = baseName(job.mainFile);
    for (std::string &name : job.dependentFilesList)
        name = baseName(name);
}

Submission::Submission(Session &session, const Options &options, const JobFile &file, Journal &journal)
    : m_session(session)
    , m_options(options)
    , m_file(file)
    , m_journal(journal)
    , m_job(file.job)
{
}

std::optional<JobDetails> Submission::earlier()
{
    if (m_journal.submission() == State::None)
        return std::nullopt;
    auto found = find(nullptr);
    if (found && m_journal.submission() == State::Begun) {
        checkUnchanged();
        m_journal.note(State::Done, m_journal.definition());
    }
    if (!found && m_journal.submission() == State::Done)
        throw Failure(
            ExitCode::Refused, QStringLiteral("No Such Job"),
            QStringLiteral("%1 has no job %2, which was submitted from %3\nstart a new one with --again")
                .arg(shown(m_session.host()), shown(m_journal.jobId()), QString::fromStdString(m_options.jobFile)));
    return found;
}

void Submission::checkUnchanged() const
{
    checkHost();
    QStringList changes;
    const QJsonObject then = m_journal.definition(), now = m_file.definition();
    for (const QString &key : now.keys())
        if (then[key] != now[key])
            changes << key;
    if (!m_job.accountID.empty() && m_job.accountID != m_journal.accountId())
        changes << QStringLiteral("the account");
    if (!m_options.hpcId.empty() && m_options.hpcId != m_journal.hpcId())
        changes << QStringLiteral("the cluster");
    const std::set<QString> sent = m_journal.sent();
    for (const QString &input : m_file.inputs) {
        const QFileInfo info(input);
        if (sent.count(info.fileName()) > 0 && info.exists() && !m_journal.isSent(input))
            changes << info.fileName();
    }
    if (changes.isEmpty())
        return;
    const QString id = shown(m_journal.jobId());
    throw Failure(ExitCode::WrongUse, QStringLiteral("Job Changed"),
                  QStringLiteral("%1 was submitted from %2, but this has changed since: %3\n"
                                 "submit it as it is now, as a new job, with --again\n"
                                 "or go on with the submitted one:\n  velmora watch %4 --to %5%6")
                      .arg(id, QString::fromStdString(m_options.jobFile), changes.join(QLatin1String(", ")),
                           quoted(m_journal.jobId()),
                           quoted(downloadFolder(m_options, m_journal.jobId()).toStdString()), sameOptions(m_options)))
        .with(QStringLiteral("jobId"), QString::fromStdString(m_journal.jobId()));
}

void Submission::checkHost() const
{
    if (m_journal.host() != m_session.host())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Another Service"),
                      QStringLiteral("%1 was submitted to %2, not to %3\nstart a new job with --again")
                          .arg(shown(m_journal.jobId()), shown(m_journal.host()), shown(m_session.host())));
}

/// The job, if the service has it. Throws `Failure` when that cannot be known.
std::optional<JobDetails> Submission::find(const ApiError *lost) const
{
    const std::string &id = m_journal.jobId();
    const auto details = m_session.ask<JobDetails>([&](const auto &done) { m_session.api().getJobDetails(id, done); });
    if (succeeded(details.error) && details.result.jobId == id)
        return details.result;
    // What else a refusal may mean is not settled; the list says it without doubt.
    if (details.error.errorCode != 0) {
        const auto list =
            m_session.ask<std::list<JobDetails>>([&](const auto &done) { m_session.api().getAllJobDetails(done); });
        if (succeeded(list.error)) {
            const auto found = std::find_if(list.result.begin(), list.result.end(),
                                            [&](const JobDetails &job) { return job.jobId == id; });
            return found == list.result.end() ? std::nullopt : std::optional(*found);
        }
    }
    const Failure why = m_session.failureOf(lost ? *lost : details.error);
    throw Failure(why.code(), QStringLiteral("Error Submitting Job"),
                  QStringLiteral("%1\nwhether %2 was submitted is not known; run the same command again, which looks "
                                 "first, or see:\n  velmora job %2%3")
                      .arg(why.message(), shown(id), sameOptions(m_options)))
        .with(QStringLiteral("jobId"), QString::fromStdString(id));
}

/// Whether the job id of the journal is good for what is to be submitted now.
bool Submission::canGoOn(const QStringList &inputs) const
{
    if (m_journal.jobId().empty() || m_journal.host() != m_session.host() ||
        (!m_job.accountID.empty() && m_job.accountID != m_journal.accountId()) ||
        (!m_options.hpcId.empty() && m_options.hpcId != m_journal.hpcId()))
        return false;
    // A solver may read every file of the job, also one that is no input any more.
    std::set<QString> names = m_journal.sent();
    for (const QString &input : inputs)
        names.erase(QFileInfo(input).fileName());
    return names.empty();
}

/// Takes the journal's job id, or another one.
void Submission::begin(const QStringList &inputs)
{
    if (canGoOn(inputs)) {
        m_job.accountID = m_journal.accountId();
        m_job.jobID = m_journal.jobId();
        checkCost(m_session, m_options, m_job);
        return;
    }
    m_job.accountID = accountToCharge(m_session, m_job.accountID.empty() ? m_journal.accountId() : m_job.accountID);
    checkCost(m_session, m_options, m_job);
    m_job.jobID = m_session.get<std::string>(
        [&](const auto &done) { m_session.api().generateNewJobID(m_job.accountID, m_options.hpcId, done); });
    if (m_job.jobID.empty())
        throw Failure(ExitCode::Refused, QStringLiteral("Error Submitting Job"),
                      QStringLiteral("the service gave out no job id"));
    m_journal.begin(m_job.jobID, m_session.host(), m_job.accountID, m_options.hpcId);
}

/// Marks what the job has already. @return false: the service does not know the job id any more
bool Submission::keepSent(Batch &uploads) const
{
    if (m_journal.sent().empty())
        return true;
    const auto listing = m_session.ask<std::list<CloudFile>>(
        [&](const auto &done) { m_session.api().getJobFileList(m_job.jobID, true, done); });
    if (listing.error.errorCode == 404)
        return false;
    m_session.check(listing.error);
    std::map<std::string, long long> sizes;
    for (const CloudFile &file : listing.result)
        sizes[file.fileName] = file.fileSize;
    for (Transfer &upload : uploads.transfers) {
        const auto found = sizes.find(upload.file.fileName);
        if (found != sizes.end() && found->second == upload.total && m_journal.isSent(upload.localPath))
            upload.keep();
    }
    return true;
}

JobDetails Submission::submit(const QStringList &inputs, Batch &uploads)
{
    begin(inputs);
    if (!inputs.isEmpty()) {
        uploads = uploadsOf(inputs, m_job.jobID);
        if (!keepSent(uploads)) {
            m_journal.forget();
            begin(inputs);
            uploads = uploadsOf(inputs, m_job.jobID);
        }
        const int kept = uploads.count(Transfer::Phase::Done);
        const QString heading =
            QStringLiteral("uploading %1 to %2").arg(countText(uploads), shown(m_job.jobID)) + keptText(kept, "there");
        if (kept < int(uploads.transfers.size()))
            moveFiles(m_session, m_options, heading, uploads,
                      [this](const Transfer &transfer) { m_journal.note(transfer); });
        if (auto failure = batchFailure(m_session, uploads,
                                        QStringLiteral("no job was submitted; run the same command again to go on")))
            throw failure->with(QStringLiteral("jobId"), QString::fromStdString(m_job.jobID))
                .with(QStringLiteral("uploads"), uploads.toJson());
        dropFolders(m_job);
    }
    return submitOnce();
}

JobDetails Submission::submitOnce()
{
    const QJsonObject definition = m_file.definition();
    m_journal.note(State::Begun, definition);
    const auto answer = m_session.ask<JobDetails>([&](const auto &done) { m_session.api().submitNewJob(m_job, done); });
    JobDetails details = answer.result;
    if (!succeeded(answer.error)) {
        const auto found = mayHaveArrived(answer.error) ? find(&answer.error) : std::nullopt;
        if (!found) {
            if (!mayHaveArrived(answer.error))
                m_journal.note(State::None, definition);
            m_session.check(answer.error);
        }
        details = *found;
    }
    if (details.jobId.empty())
        details.jobId = m_job.jobID;
    m_journal.note(State::Done, definition);
    return details;
}

} // namespace Velmora::Cli
