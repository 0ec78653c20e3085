#include "transport/Session.h"

#include "transport/RestClient.h"

#include <QDateTime>

#include <algorithm>
#include <limits>
#include <utility>

namespace Velmora {

namespace {

constexpr int triesBeforeWaitingEnds = 3;

// Renewal is due five seconds before the token runs out. A timer holds 32 bits of milliseconds, about
// 24 days: a token that lives longer is renewed then.
int renewalInterval(int lifetimeSeconds, bool keepAlive)
{
    qint64 interval = (qint64(lifetimeSeconds) - 5) * 1000;
    if (keepAlive && lifetimeSeconds > 0 && interval <= 0)
        interval = lifetimeSeconds * 500;
    return static_cast<int>(
        std::clamp<qint64>(interval, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// A token that could end the header it is sent in counts as none.
QString usableToken(const QJsonObject &tokens)
{
    const QString token = tokens.value(QLatin1String("idToken")).toString();
    const bool usable =
        !token.contains(QLatin1Char('\r')) && !token.contains(QLatin1Char('\n')) && !token.contains(QChar());
    return usable ? token : QString();
}

} // namespace

Session::Session(RestClient &rest)
    : m_rest(rest)
    , m_clock(QDateTime::currentMSecsSinceEpoch)
    , m_renewalTimer(this)
    , m_watchTimer(this)
    , m_pauseTimer(this)
{
    m_renewalTimer.setObjectName(QStringLiteral("renewal"));
    m_renewalTimer.setSingleShot(true);
    connect(&m_renewalTimer, &QTimer::timeout, this, &Session::renew);
    m_watchTimer.setObjectName(QStringLiteral("watch"));
    m_watchTimer.setTimerType(Qt::VeryCoarseTimer);
    m_watchTimer.setInterval(watchInterval);
    connect(&m_watchTimer, &QTimer::timeout, this, &Session::renewIfOverdue);
    m_pauseTimer.setObjectName(QStringLiteral("pause"));
    m_pauseTimer.setSingleShot(true);
    connect(&m_pauseTimer, &QTimer::timeout, this, &Session::sendRenewal);
}

void Session::logIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                    const Done &onComplete)
{
    forgetTokens();
    if (emailAddress != std::exchange(m_user, emailAddress))
        Q_EMIT userChanged();
    endRenewal();
    QJsonObject body{{QLatin1String("emailAddress"), toQt(emailAddress)}, {QLatin1String("password"), toQt(password)}};
    if (!mfaCode.empty())
        body[QLatin1String("mfaToken")] = toQt(mfaCode).toInt();
    requestTokens(Endpoints::Login, body, onComplete, SessionChange::SignedIn, {});
}

void Session::resume(const std::string &refreshToken, const Done &onComplete)
{
    forgetTokens();
    m_user.clear();
    Q_EMIT userChanged();
    endRenewal();
    const QString token = toQt(refreshToken);
    requestTokens(Endpoints::RefreshToken, {{QLatin1String("refreshToken"), token}}, onComplete,
                  SessionChange::SignedIn, token);
}

bool Session::isRenewing()
{
    if (m_options.keepAlive)
        renewIfOverdue();
    return m_isRenewing;
}

void Session::renewIfOverdue()
{
    if (!m_renewalTimer.isActive())
        m_watchTimer.stop();
    else if (m_clock() >= m_dueAt)
        renew();
}

void Session::renew()
{
    m_renewalTimer.stop();
    m_watchTimer.stop();
    if (m_refreshToken.isEmpty())
        return;
    setIdToken({});
    m_loggedIn = m_isRenewing = m_options.keepAlive;
    sendRenewal();
}

void Session::sendRenewal()
{
    requestTokens(Endpoints::RefreshToken, {{QLatin1String("refreshToken"), m_refreshToken}}, {},
                  SessionChange::Renewed, m_refreshToken);
}

void Session::requestTokens(const Endpoint &endpoint, const QJsonObject &body, const Done &onComplete,
                            SessionChange success, const QString &knownRefreshToken)
{
    Request request{endpoint, Verb::Post, toText(body)};
    if (m_isRenewing && m_options.answerTimeout <= 0)
        request.silence = std::chrono::milliseconds(m_renewalPatience);
    m_rest.exchange(request, [=, &endpoint, era = m_era](const Outcome &outcome) {
        ApiError error = operationError(outcome, endpoint.title);
        if (!outcome.isRefused())
            error.errorMessage = outcome.body.toStdString();
        m_rest.complete(outcome, onComplete, error);
        if (era == m_era)
            onTokens(success, outcome, knownRefreshToken);
    });
}

void Session::onTokens(SessionChange success, const Outcome &outcome, const QString &knownRefreshToken)
{
    const QJsonObject tokens = QJsonDocument::fromJson(outcome.body).object();
    const bool isUsable = !outcome.isRefused() && !usableToken(tokens).isEmpty();
    const bool isFinal = isUsable || (outcome.status >= 300 && outcome.status < 500);
    if (m_isRenewing && m_options.keepAlive && !isFinal)
        return tryAgainLater();
    if (outcome.isRefused())
        m_loggedIn = false;
    else
        acceptTokens(tokens, knownRefreshToken);
    if (isUsable)
        m_hasUser = true;
    if (isUsable || success == SessionChange::Renewed)
        notify(isUsable ? success : SessionChange::RenewalFailed);
    endRenewal();
}

void Session::tryAgainLater()
{
    const int pause = std::min(30, 1 << std::min(m_failedRenewals, 5));
    if (++m_failedRenewals >= triesBeforeWaitingEnds && m_options.answerTimeout > 0)
        m_rest.endWaiting(std::chrono::seconds(m_options.answerTimeout));
    m_pauseTimer.start(pause * m_pauseUnit);
}

void Session::acceptTokens(const QJsonObject &tokens, const QString &knownRefreshToken)
{
    setIdToken(usableToken(tokens));
    m_refreshToken = knownRefreshToken.isNull() ? tokens.value(QLatin1String("refreshToken")).toString()
                                                : knownRefreshToken; // a renewal never replaces it
    m_renewalTimer.stop();
    m_renewalTimer.setInterval(renewalInterval(tokens.value(QLatin1String("expiresIn")).toInt(), m_options.keepAlive));
    if (m_renewalTimer.interval() >= 0) { // else the token has run out already
        m_dueAt = m_clock() + m_renewalTimer.interval();
        m_renewalTimer.start();
        m_watchTimer.start();
    }
    m_loggedIn = true;
    Q_EMIT tokenChanged(m_idToken);
}

void Session::clear()
{
    forgetTokens();
    m_user.clear();
    Q_EMIT userChanged();
    Q_EMIT loggedOut(); // ends the subscriptions, also those that wait
    endRenewal();
}

void Session::forgetTokens()
{
    ++m_era;
    setIdToken({});
    m_refreshToken.clear();
    m_loggedIn = false;
    m_pauseTimer.stop();
    if (std::exchange(m_hasUser, false))
        notify(SessionChange::SignedOut);
}

void Session::endRenewal()
{
    m_failedRenewals = 0;
    if (std::exchange(m_isRenewing, false))
        Q_EMIT renewalEnded();
}

void Session::setIdToken(const QString &idToken)
{
    m_idToken = idToken;
    m_rest.setIdToken(m_idToken);
}

// Queued behind the completion of the sign-in.
void Session::notify(SessionChange change)
{
    later(this, [this, change] {
        if (const SessionChanged callback = m_callback) // a copy: it may destroy this
            callback(change);
    });
}

} // namespace Velmora
