#pragma once

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>

#include <QObject>
#include <QString>
#include <QTimer>

class QJsonObject;

namespace Velmora {

class RestClient;
struct Endpoint;

/// The signed-in user: the tokens, and their renewal before they run out.
///
///     signed out ── logIn() ─▶ signing in ─ token ─▶ signed in ─ timer ─▶ renewing ─ token ─▶ signed in
///
/// A refusal leads to signed out, and so does `clear()`. An answer that a later `logIn()` or `clear()` has overtaken
/// completes its callback and changes nothing else.
class Session : public QObject {
    Q_OBJECT
public:
    explicit Session(RestClient &rest);

    void setOptions(const ClientOptions &options) { m_options = options; }
    bool isLoggedIn() const { return m_loggedIn; }
    const QString &idToken() const { return m_idToken; }

    void logIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
               const Done &onComplete);
    /// Forgets the tokens. Nothing is sent.
    void clear();

Q_SIGNALS:
    /// Emitted for each successful answer to a sign-in or renewal.
    void tokenChanged(const QString &idToken);
    /// The user signed out, or somebody else signs in: nothing that was got for the last user may be used any more.
    void userChanged();
    void loggedOut();

private:
    void forgetTokens();
    void renew();
    void requestTokens(const Endpoint &endpoint, const QJsonObject &body, const Done &onComplete);
    void acceptTokens(const Endpoint &endpoint, const QByteArray &body);
    void setIdToken(const QString &idToken);

    ClientOptions m_options;
    RestClient &m_rest;
    QString m_idToken;
    QString m_refreshToken;
    std::string m_user; ///< of the latest sign-in
    int m_era = 0;      ///< counts sign-ins and logouts
    bool m_loggedIn = false;
    QTimer m_renewalTimer; ///< tests find it by the name "renewal"
};

} // namespace Velmora
