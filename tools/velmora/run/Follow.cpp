#include "run/Follow.h"

#include "common/Terminal.h"

#include <QPointer>

#include <algorithm>

namespace Velmora::Cli {

namespace {

constexpr int FirstRetryMs = 1000;
constexpr int LongestRetryMs = 15000;
constexpr int PollMs = 5000;
constexpr int SoonMs = 250;
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
    , m_retryMs(FirstRetryMs)
{
    m_pollTimer.setSingleShot(true);
    m_answerTimer.setSingleShot(true);
    m_answerTimer.setInterval(options.timeoutSeconds * 1000);
    connect(&m_pollTimer, &QTimer::timeout, this, &Follow::poll);
    connect(&m_answerTimer, &QTimer::timeout, this, [this] {
        ++m_round;
        onFailedPoll(ApiError());
    });
    connect(&Interrupt::instance(), &Interrupt::raised, this, [this] { finish(End::Interrupted); });
}

Follow::~Follow() { m_session.api().stopFollowing(m_jobId); }

Follow::End Follow::run()
{
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, [this] { m_view.tick(); });
    ticker.start(TickMs);
    m_view.update(m_state);
    if (!Interrupt::instance().isRaised()) {
        follow();
        poll();
        if (!m_ended)
            m_loop.exec();
    }
    return m_end;
}

void Follow::follow()
{
    m_session.api().followJob(
        m_jobId, [this](const JobProgress &progress) { onProgress(progress); },
        [this](const ApiError &error, const JobDetails &details) {
            // A session that is resumed counts as another user's, and ends the following.
            if (details.jobId.empty() && m_renewed)
                return;
            m_error = error;
            if (details.jobId.empty())
                finish(End::Refused);
            else
                onDetails(details);
        });
}

void Follow::onProgress(const JobProgress &progress)
{
    bool moved = false; // the first progress and 100 percent mean that a status may have changed
    for (const SimulationProgress &entry : progress.simulationProgressList) {
        int &known = m_state.progress[entry.simulationId];
        moved = moved || (known == 0 && entry.progress > 0) || (known < 100 && entry.progress >= 100);
        known = std::max(known, entry.progress);
    }
    m_view.update(m_state);
    if (moved && m_pollTimer.remainingTime() > SoonMs)
        m_pollTimer.start(SoonMs);
}

void Follow::onDetails(const JobDetails &details)
{
    m_state.job = details;
    m_view.update(m_state);
    if (const JobEnd end = endOf(details); end != JobEnd::Going)
        finish(end == JobEnd::Finished ? End::Finished : End::NotFinished);
}

void Follow::poll()
{
    if (m_answerTimer.interval() > 0)
        m_answerTimer.start();
    QPointer<Follow> self(this);
    m_session.api().getJobDetails(m_jobId, [=, round = ++m_round](const ApiError &error, const JobDetails &details) {
        if (self && !self->m_ended && self->m_round == round)
            self->onPolled(error, details);
    });
}

void Follow::onPolled(const ApiError &error, const JobDetails &details)
{
    m_answerTimer.stop();
    if (!succeeded(error) || details.jobId.empty()) {
        onFailedPoll(error);
        return;
    }
    if (m_failing.isValid())
        m_view.notice(QStringLiteral("%1 answers again").arg(shown(m_session.host())));
    m_failing.invalidate();
    m_retryMs = FirstRetryMs;
    m_renewed = false;
    m_pollTimer.start(PollMs);
    onDetails(details);
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
    m_retryMs = std::min(2 * m_retryMs, LongestRetryMs);
}

void Follow::renewSession()
{
    m_renewed = true;
    QPointer<Follow> self(this);
    m_session.signInAgain([self](const ApiError &error) {
        if (!self || self->m_ended)
            return;
        if (succeeded(error)) {
            self->follow();
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
    m_pollTimer.stop();
    m_answerTimer.stop();
    m_loop.quit();
}

} // namespace Velmora::Cli
