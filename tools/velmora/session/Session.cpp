#include "session/Session.h"

#include "common/Output.h"
#include "common/Render.h"
#include "common/Terminal.h"
#include "session/Tokens.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTimer>
#include <QUrl>

#include <utility>

namespace Velmora::Cli {

namespace {

constexpr int DefaultPort = 443;
constexpr int ProbeMs = 3000;
constexpr int MostCodes = 3;

Failure wrongUse(const QString &message) { return Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"), message); }

PortalTarget portalOf(const Options &options)
{
    if (options.portal == "test")
        return PortalTarget::Test;
    return options.portal == "development" ? PortalTarget::Development : PortalTarget::Production;
}

QList<QSslCertificate> authoritiesIn(const std::string &file)
{
    const QString path = QString::fromStdString(file);
    const QList<QSslCertificate> certificates =
        QSslCertificate::fromPath(path, QSsl::Pem, QSslCertificate::PatternSyntax::FixedString);
    if (certificates.isEmpty())
        throw wrongUse(QStringLiteral("%1: no PEM certificate can be read there").arg(path));
    return certificates;
}

std::string askFor(const QString &question, Terminal::Echo echo, const QString &otherwise)
{
    const auto answer = Terminal::ask(question, echo);
    if (Interrupt::instance().isRaised())
        throw Failure(ExitCode::Interrupted, QStringLiteral("Interrupted"), QStringLiteral("interrupted"));
    if (!answer || answer->isEmpty())
        throw wrongUse(otherwise);
    return answer->toStdString();
}

/// A refusal that the same request would meet again.
bool isFinal(int status) { return status >= 400 && status < 500 && status != 408 && status != 429; }

/// Takes the answer of a sign-in, which holds tokens, out of the error's message.
CloudAPI::Done withAnswer(const CloudAPI::ResultDone<std::string> &done)
{
    return [done](const ApiError &error) {
        const bool isIn = succeeded(error);
        done({error.errorCode, error.errorTitle, isIn ? std::string() : error.errorMessage},
             isIn ? error.errorMessage : std::string());
    };
}

} // namespace

Session::Session(const Options &options)
    : m_options(options)
    , m_host(hostOf(options))
    , m_user(options.user)
    , m_password(options.password)
{
    static const QRegularExpression hostForm(QStringLiteral("^(\\[[0-9A-Fa-f:.]+\\]|[A-Za-z0-9._-]+)(:[0-9]{1,5})?$"));
    if (!hostForm.match(QString::fromStdString(m_host)).hasMatch())
        throw wrongUse(QStringLiteral("%1 is not HOST or HOST:PORT").arg(shown(m_host)));
    if (!options.host.empty())
        qputenv("VELMORA_API_URL", QByteArray::fromStdString(options.host));
    if (!options.caFile.empty())
        m_authorities = authoritiesIn(options.caFile);
    m_client.caFile = options.caFile;
    m_client.answerTimeout = options.timeoutSeconds;
    m_client.stallTimeout = options.timeoutSeconds;
    m_client.uploadBytesPerSecond = m_client.downloadBytesPerSecond = options.bytesPerSecond;
    m_client.connectionsPerHost = options.transfers;
    m_api.setClientOptions(m_client);
    Interrupt::instance();
    m_api.setAPIPortal(portalOf(options));
}

void Session::setTransferRetries(int count)
{
    if (std::exchange(m_client.transferRetries, count) != count)
        m_api.setClientOptions(m_client);
}

void Session::signIn()
{
    if (!resume())
        signInWithPassword();
}

bool Session::resume()
{
    if (m_user.empty())
        m_user = TokenFile::lastUser(m_host);
    const TokenFile file(m_host, m_user);
    for (std::string token = file.read(); !token.empty();) {
        const auto answer = ask<std::string>([&](const auto &done) { m_api.resumeSession(token, withAnswer(done)); });
        m_refreshToken = token;
        if (succeeded(answer.error)) {
            takeToken(answer.result);
            if (m_refreshToken != token && !file.write(m_refreshToken))
                warn(m_options, QStringLiteral("%1 cannot be written; sign in again next time").arg(file.path()));
            return true;
        }
        m_refreshToken.clear();
        if (!isFinal(answer.error.errorCode))
            throw failureOf(answer.error);
        // Another process may have replaced it meanwhile.
        const std::string newer = file.read();
        if (newer == token) {
            file.forget(token);
            warn(m_options, QStringLiteral("%1 is no longer signed in to %2").arg(shown(m_user), shown(m_host)));
            return false;
        }
        token = newer;
    }
    return false;
}

void Session::signInWithPassword()
{
    if (m_user.empty())
        m_user = askFor(QStringLiteral("User: "), Terminal::Echo::On,
                        QStringLiteral("no user: \"velmora login\" once, set VELMORA_USER or give --user"));
    const bool needsMfa = get<bool>([this](const auto &done) { m_api.checkMFAEnabled(m_user, done); });
    if (m_password.empty())
        m_password =
            askFor(QStringLiteral("Password for %1 on %2: ").arg(shown(m_user), shown(m_host)), Terminal::Echo::Off,
                   QStringLiteral("no password: \"velmora login\" once, or set VELMORA_PASSWORD"));
    for (int code = 1;; ++code) {
        if (needsMfa)
            m_mfaCode = readMfaCode();
        const auto answer = ask<std::string>(
            [this](const auto &done) { m_api.logUserIn(m_user, m_password, m_mfaCode, withAnswer(done)); });
        if (succeeded(answer.error)) {
            takeToken(answer.result);
            return;
        }
        const bool isTyped = needsMfa && m_options.mfaCode.empty();
        if (!isTyped || code == MostCodes || !isFinal(answer.error.errorCode))
            throw failureOf(answer.error);
        Terminal::write(Terminal::Stream::Error, errorText(answer.error) + QLatin1Char('\n'));
    }
}

void Session::takeToken(const std::string &answer)
{
    const QJsonObject tokens = QJsonDocument::fromJson(QByteArray::fromStdString(answer)).object();
    const std::string token = tokens[QStringLiteral("refreshToken")].toString().toStdString();
    if (!token.empty())
        m_refreshToken = token;
}

std::string Session::readMfaCode() const
{
    std::string code = m_options.mfaCode;
    if (code.empty())
        code = askFor(QStringLiteral("One-time code: "), Terminal::Echo::On,
                      QStringLiteral("a one-time code is needed: give --mfa or set VELMORA_MFA"));
    QString digits = QString::fromStdString(code);
    digits.remove(QLatin1Char(' '));
    static const QRegularExpression codeForm(QStringLiteral("^[0-9]{1,9}$"));
    if (!codeForm.match(digits).hasMatch())
        throw wrongUse(QStringLiteral("the one-time code is not a number"));
    return digits.toStdString();
}

void Session::signInAgain(const CloudAPI::Done &onComplete)
{
    if (m_refreshToken.empty())
        m_api.logUserIn(m_user, m_password, std::string(), onComplete);
    else
        m_api.resumeSession(m_refreshToken, onComplete);
}

void Session::Waiting::complete()
{
    done = true;
    if (wake)
        wake();
}

void Session::wait(Waiting &waiting)
{
    Interrupt &interrupt = Interrupt::instance();
    if (!waiting.done && !interrupt.isRaised()) {
        QEventLoop loop;
        waiting.wake = [&loop] { loop.quit(); };
        QObject::connect(&interrupt, &Interrupt::raised, &loop, &QEventLoop::quit);
        if (m_options.timeoutSeconds > 0)
            QTimer::singleShot(m_options.timeoutSeconds * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        waiting.wake = nullptr;
    }
    if (interrupt.isRaised())
        throw Failure(ExitCode::Interrupted, QStringLiteral("Interrupted"), QStringLiteral("interrupted"));
}

JobDetails Session::job(const std::string &jobId)
{
    auto details = get<JobDetails>([&](const auto &done) { m_api.getJobDetails(jobId, done); });
    if (details.jobId.empty())
        details.jobId = jobId;
    return details;
}

void Session::check(const ApiError &error) const
{
    if (!succeeded(error))
        throw failureOf(error);
}

Failure Session::failureOf(const ApiError &error) const
{
    return error.errorCode == 0 ? noConnection() : Failure(ExitCode::Refused, error, errorText(error));
}

QString Session::whyUnreachable() const
{
    const QUrl url(QStringLiteral("https://") + QString::fromStdString(m_host));
    QSslSocket socket;
    QSslConfiguration configuration = socket.sslConfiguration();
    configuration.addCaCertificates(m_authorities);
    socket.setSslConfiguration(configuration);
    socket.connectToHostEncrypted(url.host(), quint16(url.port(DefaultPort)));
    return socket.waitForEncrypted(ProbeMs) ? QString() : socket.errorString();
}

Failure Session::noConnection() const
{
    const std::string why = m_api.lastNetworkError();
    QString reason = why.empty() ? QStringLiteral("no answer came in time") : shown(why);
    if (reason.contains(QLatin1String("not trusted")))
        reason += QStringLiteral(" (name its certificate authority with --ca)");
    return Failure(ExitCode::NoConnection, QStringLiteral("No Connection"),
                   QStringLiteral("could not reach %1: %2").arg(shown(m_host), reason));
}

} // namespace Velmora::Cli
