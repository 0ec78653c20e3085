#pragma once

#include "notify/SocketManager.h"
#include "transport/RestClient.h"

#include <velmora/Callbacks.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Velmora {

class JobFollower;
class Session;

/// In milliseconds; tests shorten them.
struct FollowPauses {
    int ask = 15000;     ///< from one question to the next while the socket is silent
    int gap = 500;       ///< from one question to the next at least
    int first = 1000;    ///< before the first repetition of what failed; each further one waits twice as long …
    int longest = 30000; ///< … up to this
    int answer = 60000;  ///< an answer that takes longer is given up
    int token = 20000;   ///< for so long a renewal of the token is waited for
};

/// How a job ended: the outcome that the application receives. No value while the job goes on. The status with which
/// it was archived decides, if it had ended before.
std::optional<ApiError> endOf(const JobDetails &job);

/// The jobs that are followed, one follower each. Their sockets are not those of the application's subscriptions, so
/// that a job may be followed and subscribed side by side.
class JobFollowers : public QObject {
    Q_OBJECT
public:
    JobFollowers(RestClient &rest, const Session &session);
    ~JobFollowers() override;

    void setPauses(const FollowPauses &pauses) { m_pauses = pauses; } ///< for the followers that are made later
    SocketManager &sockets() { return m_sockets; }

    /// An earlier follower of the job is dropped without its end.
    void follow(const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd);
    void stop(const std::string &jobId) { m_followers.erase(jobId); }

private:
    friend class JobFollower;
    void takeToken(const QString &idToken);
    void onUserChanged();

    RestClient &m_rest;
    const Session &m_session;
    FollowPauses m_pauses;
    SocketManager m_sockets;
    std::map<std::string, std::unique_ptr<JobFollower>> m_followers;
};

/// Follows one job by the messages of a socket and by questions.
///
///      ask ┌────────┐ answered: goes on          ┌─────────┐
///     ────▶│ asking ├───────────────────────────▶│ waiting │
///          └─▲────┬─┘ failed, for now            └────┬────┘
///            │    │ ended, or refused again and again │
///            │    └──────────▶ end                    │
///            └────────────────────────────────────────┘
///                a message that is more than progress, a socket lost,
///                15 s of silence, or the pause after a failure
///
/// Only the job's details decide that it has ended: a message may be about one of several simulations, and may be lost.
/// What fails by the network or by the service's state is repeated for ever.
class JobFollower : public QObject {
public:
    JobFollower(JobFollowers &all, const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd);
    ~JobFollower() override;

    void onToken();
    void end(const ApiError &error, const JobDetails &details = {});

private:
    /// Pauses that double.
    struct Backoff {
        int pause = 0; ///< the last one, 0 after a success
        int next(const FollowPauses &pauses);
    };

    void openSocket();
    void reopenLater();
    void onMessage(const std::string &text);
    void onSocketEnd(const ApiError &error, const std::string &text);
    /// @return whether the message is more than progress
    bool apply(const QJsonObject &message);
    /// @return whether it is news
    bool note(const SimulationProgress &entry);
    /// Calls the application, so it comes last.
    void report();

    bool isSilent() const;
    void askSoon();
    void onAskTimer();
    bool waitsForToken();
    void ask();
    template <class Result, class Then> void send(const Call<Result> &call, Then then);
    void dropQuestions();
    void onDetails(const ApiError &error, const JobDetails &details);
    void onFailure(const ApiError &error);
    void stopAll();

    JobFollowers &m_all;
    const FollowPauses m_pauses;
    const std::string m_jobId;
    const JobUpdate m_onUpdate;
    const JobEnd m_onEnd;
    bool m_ended = false;

    JobProgress m_progress;
    std::map<std::string, SimulationProgress *> m_entries; ///< of `m_progress`
    std::map<std::string, std::string> m_statuses;         ///< of the simulations, from messages
    bool m_changed = false;                                ///< since the last report

    QTimer m_reopenTimer;
    Backoff m_reopenPause;
    QElapsedTimer m_opened;      ///< the socket; invalid while it waits for a token
    QElapsedTimer m_lastMessage; ///< invalid before the first one, and after a loss

    QTimer m_askTimer;
    QTimer m_answerTimer;
    QElapsedTimer m_lastAsk;
    QElapsedTimer m_withoutToken; ///< invalid while there is one
    Backoff m_askPause;
    std::vector<RestClient::Abort> m_questions;
    int m_round = 0;       ///< answers to an earlier round are ignored
    bool m_asking = false; ///< for the details
    bool m_askAgain = false;
    bool m_routine = false; ///< the question that is due may wait while messages come
    int m_refusals = 0;     ///< since the last success
};

} // namespace Velmora
