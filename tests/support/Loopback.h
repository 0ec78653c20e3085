#pragma once

// What a test of network code needs: a server that the library uses, waiting with a deadline, and the
// library's log. Each restores on destruction what it changed for the process.

#include "support/ScriptedServer.h"

#include <velmora/CloudAPI.h>

#include <QtCore>
#include <QtNetwork>

#include <gtest/gtest.h>

/// PEM of the authority that signed every test server's certificate; made once per process.
QByteArray testAuthority();
/// A server's end of TLS, with a certificate for 127.0.0.1 and localhost.
QSslConfiguration serverConfiguration();

/// Sets an environment variable; a null value removes it.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char *name, const QByteArray &value);
    ~ScopedEnvironment();

private:
    Q_DISABLE_COPY(ScopedEnvironment)
    const char *m_name;
    QByteArray m_before;
};

/// Makes this process, and nothing else on the machine, trust one authority only, or any server at all.
class ScopedTrust {
public:
    explicit ScopedTrust(const QByteArray &authorityPem = testAuthority(),
                         QSslSocket::PeerVerifyMode mode = QSslSocket::AutoVerifyPeer);
    ~ScopedTrust() { QSslConfiguration::setDefaultConfiguration(m_before); }

private:
    Q_DISABLE_COPY(ScopedTrust)
    QSslConfiguration m_before = QSslConfiguration::defaultConfiguration();
};

/// A server that every `CloudAPI` uses and trusts meanwhile.
struct Loopback {
    ScriptedServer server;
    ScopedTrust trust;
    ScopedEnvironment address{"VELMORA_API_URL", server.host()};
};

/// Collects the lines of the log category "velmora" and, separately, the warnings of all other categories
/// (Qt's among them). Only one at a time.
class LogCatcher {
public:
    LogCatcher();
    ~LogCatcher();

    QStringList lines() const;
    std::string text() const { return lines().join(QLatin1Char('\n')).toStdString(); }
    QStringList warnings() const;
    void clear();

private:
    Q_DISABLE_COPY(LogCatcher)
};

/// Runs the event loop until the condition holds, which is checked whenever the loop has nothing left to do.
/// @return false when it does not hold after that many milliseconds: a hang fails the test, not the run
bool waitUntil(const std::function<bool()> &condition, int deadline = 10000);
/// For an expression.
#define EVENTUALLY(...) waitUntil([&] { return bool(__VA_ARGS__); })

void settle(); ///< delivers every event that is due on this thread now

/// @return whether the session has a token then
inline bool signIn(Velmora::CloudAPI &api, const std::string &user = "a@b", const std::string &password = "p")
{
    api.logUserIn(user, password, "", {});
    return EVENTUALLY(api.isUserLoggedIn());
}

/// Changes the defaults.
template <class Change> void setOptions(Velmora::CloudAPI &api, Change change)
{
    Velmora::ClientOptions options;
    change(options);
    api.setClientOptions(options);
}
