#include "operations/Follow.h"

#include "base/Log.h"
#include "operations/Jobs.h"
#include "transport/Session.h"

#include <QPointer>

#include <algorithm>

namespace Velmora {

namespace {

constexpr auto unknownEnd = "Error Following Job";
constexpr int refusalsBelieved = 3;
// A token may have run out while the machine slept, and its renewal takes a while.
constexpr int unauthorizedBelieved = 5;

const struct {
    const char *status;
    int code;
    const char *title;
} ends[] = {
    {"FINISHED", 200, "Job Finished"}, {"FAILED", 400, "Job Failed"},    {"ERROR", 400, "Job Failed"},
    {"STOPPED", 400, "Job Stopped"},   {"ABORTED", 400, "Job Stopped"},  {"KILLED", 400, "Job Stopped"},
    {"CANCELLED", 400, "Job Stopped"}, {"CANCELED", 400, "Job Stopped"}, {"ARCHIVED", 400, "Job Archived"},
};

bool isArchived(const std::string &status) { return toQt(status).toUpper() == QLatin1String("ARCHIVED"); }

std::optional<ApiError> endOfStatus(const std::string &status)
{
    const QString wanted = toQt(status).toUpper();
    for (const auto &end : ends)
        if (wanted == QLatin1String(end.status))
            return ApiError{end.code, end.title, end.code == 200 ? std::string() : "Job status is " + status};
    return {};
}

bool isRefusal(int code) { return code >= 400 && code < 500 && code != 408 && code != 425 && code != 429; }

} // namespace

std::optional<ApiError> endOf(const JobDetails &job)
{
    const std::string status = latestStatus(job);
    if (!isArchived(status))
        return endOfStatus(status);
    JobDetails active;
    for (const JobStatusEntry &entry : job.jobStatus)
        if (!isArchived(entry.jobStatus))
            active.jobStatus.push_back(entry);
    const auto end = endOfStatus(latestStatus(active));
    return end ? end : endOfStatus(status);
}

JobFollowers::JobFollowers(RestClient &rest, const Session &session)
    : m_rest(rest)
    , m_session(session)
{
    connect(&session, &Session::tokenChanged, this, &JobFollowers::takeToken);
    connect(&session, &Session::userChanged, this, &JobFollowers::onUserChanged);
}

JobFollowers::~JobFollowers() = default;

void JobFollowers::follow(const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd)
{
    logForeignThread(this);
    stop(jobId); // both would use the same socket
    m_followers[jobId] = std::make_unique<JobFollower>(*this, jobId, onUpdate, onEnd);
}

void JobFollowers::takeToken(const QString &idToken)
{
    if (idToken.isEmpty())
        return;
    m_sockets.updateCognitoToken(idToken);
    for (const auto &each : m_followers)
        each.second->onToken();
}

void JobFollowers::onUserChanged()
{
    for (const auto &each : m_followers)
        each.second->end({400, unknownEnd, "The user signed out, or another one signed in, before the job ended."});
}

int JobFollower::Backoff::next(const FollowPauses &pauses)
{
    pause = pause == 0 ? pauses.first : std::min(2 * pause, pauses.longest);
    return pause;
}

JobFollower::JobFollower(JobFollowers &all, const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd)
    : m_all(all)
    , m_pauses(all.m_pauses)
    , m_jobId(jobId)
    , m_onUpdate(onUpdate)
    , m_onEnd(onEnd)
{
    m_progress.jobId = jobId;
    for (QTimer *timer : {&m_reopenTimer, &m_askTimer, &m_answerTimer})
        timer->setSingleShot(true);
    connect(&m_reopenTimer, &QTimer::timeout, this, &JobFollower::openSocket);
    connect(&m_askTimer, &QTimer::timeout, this, &JobFollower::onAskTimer);
    connect(&m_answerTimer, &QTimer::timeout, this, [this] {
        dropQuestions();
        onFailure({});
    });
    m_reopenTimer.start(0);
    m_askTimer.start(0);
}

JobFollower::~JobFollower() { stopAll(); }

void JobFollower::stopAll()
{
    for (QTimer *timer : {&m_reopenTimer, &m_askTimer, &m_answerTimer})
        timer->stop();
    dropQuestions();
    m_all.m_sockets.unsubscribeFromJob(toQt(m_jobId));
}

void JobFollower::end(const ApiError &error, const JobDetails &details)
{
    if (std::exchange(m_ended, true))
        return;
    stopAll();
    // Until then the application may still stop following, and is not called.
    later(this, [this, error, details] {
        const JobEnd onEnd = m_onEnd;
        m_all.stop(std::string(m_jobId)); // destroys this object
        if (onEnd)
            onEnd(error, details);
    });
}

// The socket.

void JobFollower::openSocket()
{
    m_opened.invalidate();
    if (m_all.m_session.idToken().isEmpty() && waitsForToken())
        return;
    m_opened.start();
    m_all.m_sockets.subscribeToJob(
        toQt(m_jobId), m_all.m_session.idToken(),
        [this](const ApiError &, const std::string &, const std::string &text) { onMessage(text); },
        [this](const ApiError &error, const std::string &, const std::string &text) { onSocketEnd(error, text); });
}

void JobFollower::reopenLater()
{
    m_lastMessage.invalidate();
    if (m_opened.isValid() && m_opened.hasExpired(m_reopenPause.pause))
        m_reopenPause.pause = 0; // it lived longer than it was waited for
    m_reopenTimer.start(m_reopenPause.next(m_pauses));
}

void JobFollower::onMessage(const std::string &text)
{
    if (text.empty())
        return;
    const QJsonObject message = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
    if (message.isEmpty()) { // why the service has closed the socket, which reports nothing more
        reopenLater();
        return askSoon();
    }
    m_lastMessage.start();
    if (apply(message))
        askSoon();
    report();
}

void JobFollower::onSocketEnd(const ApiError &error, const std::string &text)
{
    reopenLater();
    if (!succeeded(error)) {
        m_all.m_sockets.unsubscribeFromJob(toQt(m_jobId));
        if (m_askPause.pause == 0) // else the service is known to be gone
            askSoon();
        return;
    }
    // The subscription is over, though it may be one of several simulations that has finished.
    apply(QJsonDocument::fromJson(QByteArray::fromStdString(text)).object());
    askSoon();
    report();
}

bool JobFollower::apply(const QJsonObject &message)
{
    // Either one simulation, or a list of them.
    QJsonArray entries = message.value(QLatin1String("simulationProgressList")).toArray();
    if (message.contains(QLatin1String("simulationId")))
        entries.append(message);
    bool isMore = entries.isEmpty();
    for (const QJsonValue &value : qAsConst(entries)) {
        const QJsonObject object = value.toObject();
        const auto entry = readRecord<SimulationProgress>(object, Form::Reply);
        const std::string status = object.value(QLatin1String("status")).toString().toStdString();
        const bool moved = !status.empty() && std::exchange(m_statuses[entry.simulationId], status) != status;
        const bool grown = note(entry);
        isMore = isMore || moved || (grown && entry.progress >= 100);
    }
    return isMore;
}

bool JobFollower::note(const SimulationProgress &entry)
{
    SimulationProgress *&known = m_entries[entry.simulationId];
    if (known && known->progress >= entry.progress)
        return false; // messages and answers overtake each other
    if (!known)
        known = &m_progress.simulationProgressList.emplace_back(entry);
    known->progress = entry.progress;
    m_changed = true;
    return true;
}

void JobFollower::report()
{
    if (!std::exchange(m_changed, false) || m_ended || !m_onUpdate)
        return;
    const JobUpdate onUpdate = m_onUpdate;
    const JobProgress progress = m_progress;
    onUpdate(progress);
}

// The questions.

bool JobFollower::isSilent() const { return !m_lastMessage.isValid() || m_lastMessage.hasExpired(m_pauses.ask); }

void JobFollower::askSoon()
{
    m_routine = false;
    if (m_asking)
        m_askAgain = true;
    else
        m_askTimer.start(m_lastAsk.isValid() ? int(std::max<qint64>(0, m_pauses.gap - m_lastAsk.elapsed())) : 0);
}

void JobFollower::onAskTimer()
{
    // Messages show that the job goes on; all the same, that it ended may have been lost among them.
    if (m_routine && !isSilent() && !m_lastAsk.hasExpired(4 * m_pauses.ask))
        m_askTimer.start(std::max(1, m_pauses.ask - int(m_lastMessage.elapsed())));
    else if (!m_all.m_session.idToken().isEmpty() || !waitsForToken())
        ask();
    else
        m_askTimer.start(std::max(1, m_pauses.token - int(m_withoutToken.elapsed())));
}

bool JobFollower::waitsForToken()
{
    if (!m_withoutToken.isValid())
        m_withoutToken.start();
    return !m_withoutToken.hasExpired(m_pauses.token);
}

void JobFollower::onToken()
{
    m_refusals = 0;
    m_withoutToken.invalidate();
    if (m_ended)
        return;
    if (!m_opened.isValid())
        m_reopenTimer.start(0);
    if (!m_asking && !m_routine)
        m_askTimer.start(0);
}

void JobFollower::ask()
{
    dropQuestions();
    m_lastAsk.start();
    m_askAgain = m_routine = false;
    m_asking = true;
    m_answerTimer.start(m_pauses.answer);
    send(Jobs::details(m_jobId),
         [this](const ApiError &error, const JobDetails &details) { onDetails(error, details); });
    if (isSilent())
        send(Jobs::progress(m_jobId), [this](const ApiError &error, const JobProgress &progress) {
            if (succeeded(error))
                for (const SimulationProgress &entry : progress.simulationProgressList)
                    note(entry);
            report();
        });
}

template <class Result, class Then> void JobFollower::send(const Call<Result> &call, Then then)
{
    const QPointer<JobFollower> self(this);
    const auto isCurrent = [self, round = m_round] { return self && self->m_round == round; };
    m_questions.push_back(m_all.m_rest.exchange(
        call.request, call.read,
        [=, title = call.request.endpoint.title](const Outcome &outcome, const std::shared_ptr<Result> &result) {
            if (isCurrent())
                later(self, [=, error = operationError(outcome, title)] {
                    if (isCurrent())
                        then(error, *result);
                });
        }));
}

void JobFollower::dropQuestions()
{
    ++m_round;
    m_asking = false;
    for (const RestClient::Abort &abort : std::exchange(m_questions, {}))
        abort();
}

void JobFollower::onDetails(const ApiError &error, const JobDetails &details)
{
    m_answerTimer.stop();
    m_asking = false;
    if (!succeeded(error) || details.jobId.empty())
        return onFailure(error);
    m_refusals = m_askPause.pause = 0;
    if (const auto outcome = endOf(details))
        return end(*outcome, details);
    if (m_askAgain)
        return askSoon();
    m_routine = true;
    m_askTimer.start(m_pauses.ask);
}

void JobFollower::onFailure(const ApiError &error)
{
    const int believed = error.errorCode == 401 ? unauthorizedBelieved : refusalsBelieved;
    if (isRefusal(error.errorCode) && ++m_refusals >= believed)
        return end({error.errorCode, unknownEnd, error.errorMessage.empty() ? error.errorTitle : error.errorMessage});
    m_askTimer.start(m_askPause.next(m_pauses));
}

} // namespace Velmora
