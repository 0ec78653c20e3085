#include "Follow.h"

#include "Terminal.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>

#include <algorithm>

namespace Velmora::Cli {

namespace {

constexpr int FirstRetryMs = 1000;
constexpr int LongestRetryMs = 30000;
constexpr int LivePollMs = 5000;
constexpr int BlindPollMs = 2000;
constexpr int LeastPollGapMs = 250;
constexpr int LongestPollBackoffMs = 15000;
constexpr int SilentMs = 15000;
constexpr int RenewalWaitMs = 500;
constexpr int MostRenewalWaits = 40;
constexpr int TickMs = 1000;

bool passesByItself(const ApiError &error)
{
    return error.errorCode == 0 || error.errorCode == 408 || error.errorCode == 429 || error.errorCode >= 500;
}

} // namespace

Follow::Follow(Session &session, JobState &state, ProgressView &view, const Options &options)
    : m_session(session)
    , m_state(state)
    , m_view(view)
    , m_patienceMs(qint64(options.patienceSeconds) * 1000)
    , m_jobId(state.job.jobId)
    , m_resubscribeMs(FirstRetryMs)
    , m_retryMs(FirstRetryMs)
{
    for (QTimer *timer : {&m_resubscribeTimer, &m_pollTimer, &m_answerTimer})
        timer->setSingleShot(true);
    m_answerTimer.setInterval(options.timeoutSeconds * 1000);
    connect(&m_resubscribeTimer, &QTimer::timeout, this, &Follow::subscribe);
    connect(&m_pollTimer, &QTimer::timeout, this, &Follow::poll);
    connect(&m_answerTimer, &QTimer::timeout, this, [this] {
        ++m_round.number;
        m_round.unanswered = 0;
        onFailedPoll(ApiError());
    });
    connect(&Interrupt::instance(), &Interrupt::raised, this, [this] { finish(End::Interrupted); });
}

Follow::~Follow()
{
    m_ended = true;
    m_session.api().unsubscribeFromJob(m_jobId);
}

Follow::End Follow::run()
{
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, [this] { m_view.tick(); });
    ticker.start(TickMs);
    m_view.update(m_state);
    if (!Interrupt::instance().isRaised()) {
        subscribe();
        poll();
        if (!m_ended)
            m_loop.exec();
    }
    return m_end;
}

void Follow::subscribe()
{
    QPointer<Follow> self(this);
    m_session.api().subscribeToJob(
        m_jobId,
        [self](const ApiError &, const std::string &, const std::string &text) {
            if (self && !self->m_ended)
                self->onMessage(text);
        },
        [self](const ApiError &error, const std::string &, const std::string &) {
            if (self && !self->m_ended)
                self->onSocketEnd(error);
        });
}

void Follow::onMessage(const std::string &text)
{
    m_lastMessage.start();
    m_resubscribeMs = FirstRetryMs;
    if (m_lost) {
        m_lost = false;
        m_view.notice(QStringLiteral("live progress is back"));
    }
    if (!applyProgress(text))
        pollSoon();
}

bool Follow::applyProgress(const std::string &text)
{
    // Either one simulation, or a list of them.
    const QJsonObject message = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
    QJsonArray entries = message.value(QLatin1String("simulationProgressList")).toArray();
    if (message.contains(QLatin1String("simulationId")))
        entries.append(message);
    bool unchanged = !entries.isEmpty();
    for (const QJsonValue &value : entries) {
        const QJsonObject entry = value.toObject();
        const std::string id = entry.value(QLatin1String("simulationId")).toString().toStdString();
        const QString status = entry.value(QLatin1String("status")).toString().toLower();
        const int before = m_state.progress[id];
        const int progress = noteProgress(id, entry.value(QLatin1String("progress")).toInt());
        // Without a status in the message, the first progress and 100 percent mean that the status may have changed.
        if (status.isEmpty())
            unchanged = unchanged && (before > 0 || progress == 0) && (before >= 100 || progress < 100);
        else
            unchanged = unchanged && status.toStdString() == statusOf(m_state.job, id);
    }
    if (!entries.isEmpty())
        m_view.update(m_state);
    return unchanged;
}

int Follow::noteProgress(const std::string &simulationId, int progress)
{
    // Answers and messages may arrive out of order.
    int &known = m_state.progress[simulationId];
    known = std::max(known, progress);
    return known;
}

void Follow::onSocketEnd(const ApiError &error)
{
    // It may be one of several simulations that ended: only the job's records decide that the job has.
    if (succeeded(error)) {
        m_lastMessage.invalidate();
        resubscribeLater();
        pollSoon();
        return;
    }
    if (!m_lost) {
        m_lost = true;
        m_view.notice(QStringLiteral("live progress of %1 was lost; asking the service instead").arg(shown(m_jobId)));
    }
    m_lastMessage.invalidate();
    m_session.api().unsubscribeFromJob(m_jobId);
    resubscribeLater();
    pollSoon();
}

void Follow::resubscribeLater()
{
    m_resubscribeTimer.start(m_resubscribeMs);
    m_resubscribeMs = std::min(2 * m_resubscribeMs, LongestRetryMs);
}

void Follow::pollSoon()
{
    if (m_round.unanswered > 0) {
        m_pollAgain = true;
        return;
    }
    const qint64 gap = m_lastPoll.isValid() ? m_lastPoll.elapsed() : LeastPollGapMs;
    m_pollTimer.start(int(std::max<qint64>(0, LeastPollGapMs - gap)));
}

void Follow::poll()
{
    m_pollTimer.stop();
    if (m_ended || m_round.unanswered > 0)
        return;
    // While the session renews its token, a request would be sent without one.
    if (!m_session.api().isUserLoggedIn() && m_renewalWaits < MostRenewalWaits) {
        ++m_renewalWaits;
        m_pollTimer.start(RenewalWaitMs);
        return;
    }
    m_renewalWaits = 0;
    m_lastPoll.start();
    m_pollAgain = false;
    const int number = ++m_round.number;
    m_round.unanswered = 2;
    if (m_answerTimer.interval() > 0)
        m_answerTimer.start();

    QPointer<Follow> self(this);
    const auto isCurrent = [self, number] { return self && !self->m_ended && self->m_round.number == number; };
    m_session.api().getJobProgress(m_jobId, [=](const ApiError &error, const JobProgress &progress) {
        if (!isCurrent())
            return;
        if (succeeded(error))
            for (const SimulationProgress &entry : progress.simulationProgressList)
                self->noteProgress(entry.simulationId, entry.progress);
        self->onAnswer(number);
    });
    m_session.api().getJobDetails(m_jobId, [=](const ApiError &error, const JobDetails &details) {
        if (!isCurrent())
            return;
        self->m_round.detailsError = error;
        self->m_round.details = details;
        self->onAnswer(number);
    });
}

void Follow::onAnswer(int round)
{
    if (round == m_round.number && --m_round.unanswered == 0) {
        m_answerTimer.stop();
        evaluate();
    }
}

void Follow::evaluate()
{
    if (!succeeded(m_round.detailsError) || m_round.details.jobId.empty()) {
        onFailedPoll(m_round.detailsError);
        return;
    }
    if (m_failing.isValid())
        m_view.notice(QStringLiteral("%1 answers again").arg(shown(m_session.host())));
    m_failing.invalidate();
    m_retryMs = FirstRetryMs;
    m_renewed = false;

    const bool moved = statusOf(m_state.job) != statusOf(m_round.details);
    m_state.job = m_round.details;
    m_view.update(m_state);
    switch (endOf(m_state.job)) {
    case JobEnd::Finished:
        finish(End::Finished);
        return;
    case JobEnd::NotFinished:
        finish(End::NotFinished);
        return;
    case JobEnd::Going:
        break;
    }
    // After the service has closed the socket normally it stays silent, and no loss is reported.
    if (moved && m_lastMessage.isValid() && m_lastMessage.elapsed() > SilentMs && !m_resubscribeTimer.isActive()) {
        m_lastMessage.invalidate();
        resubscribeLater();
    }
    schedulePoll();
}

void Follow::schedulePoll()
{
    if (m_pollAgain)
        pollSoon();
    else if (m_lastMessage.isValid() && m_lastMessage.elapsed() < SilentMs)
        m_pollTimer.start(LivePollMs);
    else
        m_pollTimer.start(BlindPollMs);
}

void Follow::onFailedPoll(const ApiError &error)
{
    m_error = error;
    if (error.errorCode == 401 && m_session.canSignInAgain() && !m_renewed) {
        renewSession();
        return;
    }
    if (!succeeded(error) && !passesByItself(error)) {
        finish(End::Refused);
        return;
    }
    if (!m_failing.isValid()) {
        m_failing.start();
        m_view.notice(
            QStringLiteral("%1 gives no answer about %2; trying again").arg(shown(m_session.host()), shown(m_jobId)));
    }
    if (m_failing.elapsed() >= m_patienceMs) {
        finish(error.errorCode == 0 ? End::Unreachable : End::Refused);
        return;
    }
    m_pollTimer.start(int(std::min<qint64>(m_retryMs, std::max<qint64>(1, m_patienceMs - m_failing.elapsed()))));
    m_retryMs = std::min(2 * m_retryMs, LongestPollBackoffMs);
}

void Follow::renewSession()
{
    m_renewed = true;
    QPointer<Follow> self(this);
    m_session.signInAgain([self](const ApiError &error) {
        if (!self || self->m_ended)
            return;
        if (succeeded(error)) {
            self->m_pollTimer.start(0);
        } else {
            self->m_renewed = !passesByItself(error);
            self->onFailedPoll({error.errorCode, error.errorTitle, error.errorMessage});
        }
    });
}

void Follow::finish(End end)
{
    if (m_ended)
        return;
    m_ended = true;
    m_end = end;
    for (QTimer *timer : {&m_resubscribeTimer, &m_pollTimer, &m_answerTimer})
        timer->stop();
    m_loop.quit();
}

} // namespace Velmora::Cli
