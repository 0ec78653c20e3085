/// @file Follow.h
/// Following one job to its end.
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

/// Follows a job by its live messages and by asking for its state.
///
///      subscribe ┌──────────┐  message   ┌──────────┐
///     ──────────>│ untested ├───────────>│   live   │
///                └──┬────▲──┘            └────┬─────┘
///              lost │    │ after 1, 2, 4 …    │ lost, or the job
///                   │    │ 30 s               │ moves unannounced
///                ┌──▼────┴──┐                 │
///                │   lost   │<────────────────┘
///                └──────────┘
///
/// In every state the job's own records are asked for: seldom when messages come, more often when
/// none do, and soon after each message that is not plain progress. They alone decide that the job
/// has ended. A service that does not answer is asked again, ever less often, until the user's
/// patience is over; a session that has run out is renewed when the credentials allow it.
class Follow : public QObject {
    Q_OBJECT
public:
    enum class End { Finished, NotFinished, Refused, Unreachable, Interrupted };

    /// The first three must outlive the follower. `state` is where the job stands and is kept up to date.
    Follow(Session &session, JobState &state, ProgressView &view, const Options &options);
    ~Follow() override;

    /// Runs the event loop until the job has ended or following it makes no sense any more.
    End run();
    /// The service's last refusal.
    const ApiError &error() const { return m_error; }

private:
    void subscribe();
    void onMessage(const std::string &text);
    void onSocketEnd(const ApiError &error);
    /// @return false when the job's records should be looked at.
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
    QElapsedTimer m_lastMessage; ///< valid once a message came
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
