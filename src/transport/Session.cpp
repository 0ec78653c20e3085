#include "transport/Session.h"

#include "transport/RestClient.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Velmora {

namespace {

// Renewal is due five seconds before the token runs out. A timer holds 32 bits of milliseconds, about
// 24 days: a token that lives longer is renewed then.
int renewalInterval(int lifetimeSeconds)
{
    const qint64 interval = (qint64(lifetimeSeconds) - 5) * 1000;
    return static_cast<int>(
        std::clamp<qint64>(interval, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

} // namespace

Session::Session(RestClient &rest)
    : m_rest(rest)
    , m_renewalTimer(this)
{
    m_renewalTimer.setObjectName(QStringLiteral("renewal"));
    m_renewalTimer.setSingleShot(true);
    connect(&m_renewalTimer, &QTimer::timeout, this, &Session::renew);
}

void Session::logIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                    const Done &onComplete)
{
    forgetTokens();
    if (emailAddress != std::exchange(m_user, emailAddress))
        Q_EMIT userChanged();
    QJsonObject body{{QLatin1String("emailAddress"), toQt(emailAddress)}, {QLatin1String("password"), toQt(password)}};
    if (!mfaCode.empty())
        body[QLatin1String("mfaToken")] = toQt(mfaCode).toInt();
    requestTokens(Endpoints::Login, body, onComplete);
}

void Session::renew()
{
    if (m_refreshToken.isEmpty())
        return;
    setIdToken({});
    m_loggedIn = false;
    requestTokens(Endpoints::RefreshToken, {{QLatin1String("refreshToken"), m_refreshToken}}, {});
}

void Session::requestTokens(const Endpoint &endpoint, const QJsonObject &body, const Done &onComplete)
{
    const Request request{endpoint, Verb::Post, toText(body)};
    m_rest.exchange(request, [this, &endpoint, onComplete, era = m_era](const Outcome &outcome) {
        ApiError error = operationError(outcome, endpoint.title);
        if (!outcome.isRefused()) {
            error.errorMessage = outcome.body.toStdString();
            if (era == m_era)
                acceptTokens(endpoint, outcome.body);
        }
        m_rest.deliver(onComplete, error);
    });
}

void Session::acceptTokens(const Endpoint &endpoint, const QByteArray &body)
{
    const QJsonObject tokens = QJsonDocument::fromJson(body).object();
    setIdToken(tokens.value(QLatin1String("idToken")).toString());
    if (endpoint.code == Endpoints::Login.code) // a renewal never replaces it
        m_refreshToken = tokens.value(QLatin1String("refreshToken")).toString();
    m_renewalTimer.stop();
    m_renewalTimer.setInterval(renewalInterval(tokens.value(QLatin1String("expiresIn")).toInt()));
    if (m_renewalTimer.interval() >= 0) // else the token has run out already
        m_renewalTimer.start();
    m_loggedIn = true;
    Q_EMIT tokenChanged(m_idToken);
}

void Session::clear()
{
    forgetTokens();
    m_user.clear();
    Q_EMIT userChanged();
    Q_EMIT loggedOut();
}

void Session::forgetTokens()
{
    ++m_era;
    setIdToken({});
    m_refreshToken.clear();
    m_loggedIn = false;
}

// A token that could end the header it is sent in counts as none.
void Session::setIdToken(const QString &idToken)
{
    const bool usable =
        !idToken.contains(QLatin1Char('\r')) && !idToken.contains(QLatin1Char('\n')) && !idToken.contains(QChar());
    m_idToken = usable ? idToken : QString();
    m_rest.setIdToken(m_idToken);
}

} // namespace Velmora
