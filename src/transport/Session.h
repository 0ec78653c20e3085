#pragma once

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class QJsonObject;

namespace Velmora {

class RestClient;
struct Endpoint;
struct Outcome;

/// The signed-in user: the tokens, and their renewal before they run out.
///
///     signed out ── logIn(), resume() ─▶ signing in ─ token ─▶ signed in ─ due ─▶ renewing ─ token ─▶ signed in
///                                                                                 │      ▲
///                                                          no answer, `keepAlive` └ pause ┘
///
/// A refusal leads to signed out, and so does `clear()`. An answer that a later `logIn()` or `clear()` has overtaken
/// completes its callback and changes nothing else.
///
/// A renewal is due by the timer, which stands still while the machine sleeps, or by the wall clock, which is looked at
/// every few seconds and, with `keepAlive`, before each request.
class Session : public QObject {
    Q_OBJECT
public:
    static constexpr int watchInterval = 5000; ///< milliseconds between two looks at the wall clock

    explicit Session(RestClient &rest);

    void setOptions(const ClientOptions &options) { m_options = options; }
    bool isLoggedIn() const { return m_loggedIn; }
    const QString &idToken() const { return m_idToken; }
    /// Whether requests have to wait for `renewalEnded`. Starts a renewal that is overdue.
    bool isRenewing();

    void logIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
               const Done &onComplete);
    /// Signs in with the refresh token of an earlier sign-in, of an unknown user.
    void resume(const std::string &refreshToken, const Done &onComplete);
    /// Forgets the tokens. Nothing is sent.
    void clear();
    void setCallback(const SessionChanged &callback) { m_callback = callback; }

    /// For tests: milliseconds since the epoch; the unit of the pauses, 1 s; how long a renewal that is to be tried
    /// again waits for an answer, where the options do not say it.
    void setClock(std::function<qint64()> clock) { m_clock = std::move(clock); }
    void setPauseUnit(int milliseconds) { m_pauseUnit = milliseconds; }
    void setRenewalPatience(int milliseconds) { m_renewalPatience = milliseconds; }

Q_SIGNALS:
    /// Emitted for each successful answer to a sign-in or renewal.
    void tokenChanged(const QString &idToken);
    /// The user signed out, or somebody else signs in: nothing that was got for the last user may be used any more.
    void userChanged();
    void loggedOut();
    /// What waited for the renewal goes on, with a new token or without any.
    void renewalEnded();

private:
    void forgetTokens();
    void endRenewal();
    void renew();
    void sendRenewal();
    void renewIfOverdue();
    void tryAgainLater();
    void onTokens(SessionChange success, const Outcome &outcome, const QString &knownRefreshToken);
    void requestTokens(const Endpoint &endpoint, const QJsonObject &body, const Done &onComplete, SessionChange success,
                       const QString &knownRefreshToken);
    void acceptTokens(const QJsonObject &tokens, const QString &refreshToken);
    void setIdToken(const QString &idToken);
    void notify(SessionChange change);

    ClientOptions m_options;
    RestClient &m_rest;
    QString m_idToken;
    QString m_refreshToken;
    std::string m_user; ///< of the latest sign-in; empty when unknown
    int m_era = 0;      ///< counts sign-ins and logouts
    bool m_loggedIn = false;
    bool m_isRenewing = false; ///< and requests wait
    bool m_hasUser = false;    ///< `SignedIn` was the latest change of that kind
    int m_failedRenewals = 0;  ///< in a row
    int m_pauseUnit = 1000;
    int m_renewalPatience = 60000;
    std::function<qint64()> m_clock;
    qint64 m_dueAt = 0;    ///< by the wall clock; meaningful while the renewal timer runs
    QTimer m_renewalTimer; ///< tests find it by the name "renewal"
    QTimer m_watchTimer;   ///< looks at the wall clock while the renewal timer runs; "watch"
    QTimer m_pauseTimer;   ///< before a renewal is tried again; "pause"
    SessionChanged m_callback;
};

} // namespace Velmora
