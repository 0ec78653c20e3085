#include "support/Loopback.h"

#include "portal/http/Certificates.h"

namespace {

const VelmoraPortal::Certificates &certificates()
{
    static const VelmoraPortal::Certificates made = VelmoraPortal::makeCertificates();
    return made;
}

QMutex mutex;
QStringList caughtLines, caughtWarnings;
QtMessageHandler previousHandler = nullptr;

void catchMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QMutexLocker lock(&mutex);
    if (context.category && qstrcmp(context.category, "velmora") == 0) {
        caughtLines.append(text);
        return;
    }
    if (type != QtDebugMsg && type != QtInfoMsg)
        caughtWarnings.append(text);
    previousHandler(type, context, text);
}

QStringList copyOf(const QStringList &list)
{
    const QMutexLocker lock(&mutex);
    return list;
}

} // namespace

QByteArray testAuthority() { return QByteArray::fromStdString(certificates().caPem); }

QSslConfiguration serverConfiguration()
{
    QSslConfiguration configuration;
    configuration.setLocalCertificate(QSslCertificate(QByteArray::fromStdString(certificates().certPem)));
    configuration.setPrivateKey(QSslKey(QByteArray::fromStdString(certificates().keyPem), QSsl::Ec));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}

ScopedEnvironment::ScopedEnvironment(const char *name, const QByteArray &value)
    : m_name(name)
    , m_before(qgetenv(name))
{
    value.isNull() ? qunsetenv(name) : qputenv(name, value);
}

ScopedEnvironment::~ScopedEnvironment() { m_before.isNull() ? qunsetenv(m_name) : qputenv(m_name, m_before); }

ScopedTrust::ScopedTrust(const QByteArray &authorityPem, QSslSocket::PeerVerifyMode mode)
{
    QSslConfiguration trusting = m_before;
    trusting.setPeerVerifyMode(mode);
    trusting.setCaCertificates(QSslCertificate::fromData(authorityPem));
    QSslConfiguration::setDefaultConfiguration(trusting);
}

LogCatcher::LogCatcher()
{
    clear();
    previousHandler = qInstallMessageHandler(catchMessage);
    QLoggingCategory::setFilterRules(QStringLiteral("velmora.debug=true"));
}

LogCatcher::~LogCatcher()
{
    qInstallMessageHandler(previousHandler);
    QLoggingCategory::setFilterRules({});
}

QStringList LogCatcher::lines() const { return copyOf(caughtLines); }

QStringList LogCatcher::warnings() const { return copyOf(caughtWarnings); }

void LogCatcher::clear()
{
    const QMutexLocker lock(&mutex);
    caughtLines.clear();
    caughtWarnings.clear();
}

bool waitUntil(const std::function<bool()> &condition, int deadline)
{
    if (condition())
        return true;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, [&loop] { loop.exit(1); });
    timer.start(deadline);
    // Exits only once: exiting again and again would keep a nested wait from reading its sockets.
    bool met = false;
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &loop, [&] {
        if (!met && (met = condition()))
            loop.exit(0);
    });
    return loop.exec() == 0;
}

void settle()
{
    waitUntil([idle = false]() mutable { return std::exchange(idle, true); });
}
