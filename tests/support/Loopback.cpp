#include "support/Loopback.h"

#include "Certificates.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QMutex>
#include <QMutexLocker>
#include <QSslCertificate>
#include <QSslKey>
#include <QTimer>

#include <cstring>

namespace {

const VelmoraPortal::Certificates &certificates()
{
    static const VelmoraPortal::Certificates made = VelmoraPortal::makeCertificates();
    return made;
}

struct Caught {
    QMutex mutex;
    QStringList lines;
    QStringList warnings;
    QtMessageHandler previous = nullptr;
};

Caught &caught()
{
    static Caught instance;
    return instance;
}

void catchMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    Caught &all = caught();
    const QMutexLocker lock(&all.mutex);
    if (context.category && std::strcmp(context.category, "velmora") == 0) {
        all.lines.append(text);
        return;
    }
    if (type != QtDebugMsg && type != QtInfoMsg)
        all.warnings.append(text);
    all.previous(type, context, text);
}

} // namespace

QByteArray testAuthority() { return QByteArray::fromStdString(certificates().caPem); }

QSslConfiguration serverConfiguration()
{
    static const QSslConfiguration made = [] {
        QSslConfiguration configuration;
        configuration.setLocalCertificate(QSslCertificate(QByteArray::fromStdString(certificates().certPem)));
        configuration.setPrivateKey(QSslKey(QByteArray::fromStdString(certificates().keyPem), QSsl::Ec));
        configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
        return configuration;
    }();
    return made;
}

ScopedEnvironment::ScopedEnvironment(const char *name, const QByteArray &value)
    : m_name(name)
    , m_wasSet(qEnvironmentVariableIsSet(name))
    , m_before(qgetenv(name))
{
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}

ScopedEnvironment::~ScopedEnvironment()
{
    if (m_wasSet)
        qputenv(m_name, m_before);
    else
        qunsetenv(m_name);
}

ScopedTrust::ScopedTrust(const QByteArray &authorityPem)
    : m_before(QSslConfiguration::defaultConfiguration())
{
    QSslConfiguration trusting = m_before;
    trusting.setCaCertificates(QSslCertificate::fromData(authorityPem));
    QSslConfiguration::setDefaultConfiguration(trusting);
}

ScopedTrust::~ScopedTrust() { QSslConfiguration::setDefaultConfiguration(m_before); }

LogCatcher::LogCatcher()
{
    clear();
    caught().previous = qInstallMessageHandler(catchMessage);
    QLoggingCategory::setFilterRules(QStringLiteral("velmora.debug=true"));
}

LogCatcher::~LogCatcher()
{
    qInstallMessageHandler(caught().previous);
    QLoggingCategory::setFilterRules({});
}

QStringList LogCatcher::lines() const
{
    const QMutexLocker lock(&caught().mutex);
    return caught().lines;
}

QStringList LogCatcher::warnings() const
{
    const QMutexLocker lock(&caught().mutex);
    return caught().warnings;
}

void LogCatcher::clear()
{
    const QMutexLocker lock(&caught().mutex);
    caught().lines.clear();
    caught().warnings.clear();
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
    // Leaves only once: leaving again and again would keep a nested wait from ever reading a socket.
    bool met = false;
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &loop,
                     [&loop, &condition, &met] {
                         if (!met && (met = condition()))
                             loop.exit(0);
                     });
    return loop.exec() == 0;
}

void settle()
{
    bool idle = false;
    waitUntil([&idle] { return std::exchange(idle, true); });
}
