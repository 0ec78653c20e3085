// Sign-in, token renewal, logout.

#include "notify/SocketManager.h"
#include "transport/Pipeline.h"

#include <algorithm>
#include <limits>

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

void CloudAPIImpl::logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                             const Done &onComplete)
{
    m_idToken.clear();
    m_refreshToken.clear();
    m_loggedIn = false;
    QJsonObject body{{QLatin1String("emailAddress"), toQt(emailAddress)}, {QLatin1String("password"), toQt(password)}};
    if (!mfaCode.empty())
        body[QLatin1String("mfaToken")] = toQt(mfaCode).toInt();
    requestTokens(RequestType::Login, body, onComplete);
}

void CloudAPIImpl::renewToken(const Done &onComplete)
{
    if (m_refreshToken.isEmpty())
        return;
    m_idToken.clear();
    m_loggedIn = false;
    requestTokens(RequestType::RefreshToken, {{QLatin1String("refreshToken"), m_refreshToken}}, onComplete);
}

void CloudAPIImpl::requestTokens(RequestType type, const QJsonObject &body, const Done &onComplete)
{
    exchange({type, Verb::Post, toText(body)}, [this, type, onComplete](Outcome &outcome) {
        if (!outcome.failed) {
            outcome.error.errorMessage = outcome.body.toStdString();
            acceptTokens(type, outcome.body);
        }
        deliver(onComplete, outcome.error);
    });
}

void CloudAPIImpl::acceptTokens(RequestType type, const QByteArray &body)
{
    const QJsonObject tokens = QJsonDocument::fromJson(body).object();
    m_idToken = tokens.value(QLatin1String("idToken")).toString();
    if (type == RequestType::Login) // a renewal never replaces it
        m_refreshToken = tokens.value(QLatin1String("refreshToken")).toString();
    m_tokenLifetime = tokens.value(QLatin1String("expiresIn")).toInt();
    if (!m_refreshTimer) {
        m_refreshTimer = std::make_unique<QTimer>();
        m_refreshTimer->setSingleShot(true);
        connect(m_refreshTimer.get(), &QTimer::timeout, this, [this] { renewToken({}); });
    }
    m_refreshTimer->start(renewalInterval(m_tokenLifetime));
    m_loggedIn = true;
    m_sockets->updateCognitoToken(m_idToken);
}

void CloudAPIImpl::checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete)
{
    call<bool>(
        {RequestType::HasMfa, Verb::Post, bodyOf({{"emailAddress", emailAddress}})},
        [](const QByteArray &body) { return body == "true"; }, onComplete);
}

void CloudAPIImpl::clearActiveAccount()
{
    m_loggedIn = false;
    m_idToken.clear();
    m_refreshToken.clear();
}

} // namespace Velmora
