/// @file Follow.h
/// Follows one job to its end.
#ifndef VELMORA_CLI_FOLLOW_H
#define VELMORA_CLI_FOLLOW_H

#include "JobState.h"
#include "ProgressView.h"
#include "Session.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <string>

namespace Velmora::Cli {

/// Follows a job by its live messages and by polling its state.
///
///      subscribe ┌──────────┐  message   ┌──────────┐
///     ──────────>│ untested ├───────────>│   live   │
///                └──┬────▲──┘            └────┬─────┘
///              lost │    │ after 1, 2, 4 …    │ lost, or the job
///                   │    │ 30 s               │ changes silently
///                ┌──▼────┴──┐                 │
///                │   lost   │<────────────────┘
///                └──────────┘
///
/// The job's records are polled in every state: rarely while messages arrive, more often without
/// them, and soon after each message that is more than progress. Only the records decide that the job
/// has ended. While the service does not answer, polls are repeated with growing delays until the
/// user's patience expires. An expired session is renewed when the credentials allow it.
class Follow : public QObject {
    Q_OBJECT
public:
    enum class End { Finished, NotFinished, Refused, Unreachable, Interrupted };

    /// The first three must outlive the follower. `state` is kept up to date.
    Follow(Session &session, JobState &state, ProgressView &view, const Options &options);
    ~Follow() override;

    /// Runs the event loop until the job has ended or can no longer be followed.
    End run();
    /// The service's last error.
    const ApiError &error() const { return m_error; }

private:
    void subscribe();
    void onMessage(const std::string &text);
    void onSocketEnd(const ApiError &error);
    /// @return false when the job's records should be polled.
    bool applyProgress(const std::string &text);
    int noteProgress(const std::string &simulationId, int progress);
    void resubscribeLater();

    void pollSoon();
    void poll();
    void onAnswer(int round);
    void evaluate();
    void schedulePoll();
    void onFailedPoll(const ApiError &error);
    void renewSession();
    void finish(End end);

    Session &m_session;
    JobState &m_state;
    ProgressView &m_view;
    const qint64 m_patienceMs;
    const std::string m_jobId;
    QEventLoop m_loop;
    End m_end = End::Interrupted;
    bool m_ended = false;
    ApiError m_error;

    QTimer m_resubscribeTimer;
    QElapsedTimer m_lastMessage; ///< valid once a message was received
    bool m_lost = false;
    int m_resubscribeMs;

    /// One round asks for details and progress; answers to an earlier round are ignored.
    struct Round {
        int number = 0;
        int unanswered = 0;
        ApiError detailsError;
        JobDetails details;
    };
    Round m_round;
    QTimer m_pollTimer;
    QTimer m_answerTimer;
    QElapsedTimer m_lastPoll;
    bool m_pollAgain = false;
    QElapsedTimer m_failing; ///< valid while the service does not answer
    int m_retryMs;
    int m_renewalWaits = 0;
    bool m_renewed = false;
};

} // namespace Velmora::Cli

#endif
