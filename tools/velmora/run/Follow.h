/// @file Follow.h
/// Follows one job to its end.
#ifndef VELMORA_CLI_FOLLOW_H
#define VELMORA_CLI_FOLLOW_H

#include "common/JobState.h"
#include "run/ProgressView.h"
#include "session/Session.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <string>

namespace Velmora::Cli {

/// Follows a job to its end, and asks for its details meanwhile, which say what its simulations do.
///
/// While the service does not answer, the question is repeated with growing delays until the user's patience expires.
/// An expired session is renewed when the credentials allow it.
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
    void follow();
    void onProgress(const JobProgress &progress);
    void onDetails(const JobDetails &details);

    void poll();
    void onPolled(const ApiError &error, const JobDetails &details);
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

    QTimer m_pollTimer;
    QTimer m_answerTimer;
    int m_round = 0;         ///< answers to an earlier question are ignored
    QElapsedTimer m_failing; ///< valid while the service does not answer
    int m_retryMs;
    bool m_renewed = false;
};

} // namespace Velmora::Cli

#endif
