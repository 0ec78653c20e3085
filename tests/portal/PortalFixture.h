#pragma once

// The portal seen by clients of another make: bare TLS sockets and `openssl enc`.

#include "Portal.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace PortalTests {

using namespace VelmoraPortal;
using namespace std::chrono_literals;
using S = std::string;

inline QString q(const S &text) { return QString::fromStdString(text); }
inline QByteArray b(const S &text) { return QByteArray::fromStdString(text); }
inline S s(const QJsonValue &value) { return value.toString().toStdString(); }

struct Reply {
    int status = 0; ///< 0: no whole answer came
    S head;
    S body;
    bool closed = false; ///< by the portal
    QJsonObject object() const { return QJsonDocument::fromJson(b(body)).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(b(body)).array(); }
    S text(const char *key) const { return s(object()[QLatin1String(key)]); }
};

inline S replaced(S text, const S &what, const S &with)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != S::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

inline S request(const S &verb, const S &path, const S &body, const S &authorization,
                 const S &type = "application/json")
{
    return verb + " /api/" + path + " HTTP/1.1\r\nHost: portal:1\r\n" +
           (type.empty() ? "" : "Content-Type: " + type + "\r\n") +
           (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

inline S submission(const S &jobId)
{
    return R"({"jobId":")" + jobId +
           R"(","accountId":"ACC-1001","jobName":"Beam-140309-050321","mainFile":"dir/b.trninp",
        "dockerTag":" ","fileDependencies":["a"],"fileAliases":["b"],"operation":"mpi",
        "simulations":[{"consoleParameters":"-x 1"},{"consoleParameters":"-x 2"}],
        "jobType":"Cloud Configuration - Simulation Sweep","precision":"single","coresRequired":4,
        "coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,"application":"test"})";
}

template <typename Condition> bool eventually(Condition condition, int patience = 8000)
{
    QElapsedTimer timer;
    bool met = condition(); // once each time: what was true for a moment may not be a moment later
    for (timer.start(); !met && timer.elapsed() < patience; met = condition())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    return met;
}

inline S run(const char *program, const QStringList &arguments, const S &input)
{
    QProcess process;
    process.start(QLatin1String(program), arguments);
    process.write(b(input));
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0 ? process.readAllStandardOutput().toStdString() : "";
}

class PortalTest : public testing::Test {
protected:
    static Options quick()
    {
        Options options;
        options.jobDuration = 400ms;
        options.requireInputs =
            testing::UnitTest::GetInstance()->current_test_info()->name() == S("JobsNeedTheirInputs");
        return options;
    }

    QSslConfiguration trust() const
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(QSslCertificate::fromData(b(portal.caPem())));
        return configuration;
    }

    bool connect(QSslSocket &socket) const
    {
        socket.setSslConfiguration(trust());
        socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), portal.port());
        return socket.waitForEncrypted(5000);
    }

    /// Sends one request and reads until its answer is whole, the portal closes, or `patience` is over.
    static Reply exchange(QSslSocket &socket, const S &bytes, int patience = 5000)
    {
        socket.write(b(bytes));
        Reply reply;
        S all;
        QElapsedTimer timer;
        for (timer.start();;) {
            all += socket.readAll().toStdString();
            const auto end = all.find("\r\n\r\n");
            const auto length = all.find("Content-Length: ");
            reply.head = all.substr(0, end == S::npos ? end : end + 4);
            reply.body = end == S::npos ? "" : all.substr(end + 4);
            reply.closed = socket.state() != QAbstractSocket::ConnectedState;
            const std::size_t size = end != S::npos && length < end ? std::stoul(all.substr(length + 16))
                                     : reply.closed                 ? 0
                                                                    : S::npos;
            if (end != S::npos && (reply.body.size() >= size || all.substr(9, 3) == "204")) {
                reply.status = std::stoi(all.substr(9, 3));
                return reply;
            }
            const int left = patience - static_cast<int>(timer.elapsed());
            if (reply.closed || left <= 0)
                return reply;
            socket.waitForReadyRead(left);
        }
    }

    Reply send(const S &bytes, int patience = 5000) const
    {
        QSslSocket socket;
        return connect(socket) ? exchange(socket, bytes, patience) : Reply{0, {}, {}, true};
    }
    Reply post(const S &path, const S &body) { return send(request("POST", path, body, token)); }
    S newJob() { return post("job/init", R"({"accountId":"ACC-1001"})").text("jobId"); }

    S login(std::size_t user, const S &more = {})
    {
        const SeededUser &who = seededUsers()[user];
        const Reply reply = send(
            request("POST", "auth/login",
                    R"({"emailAddress":")" + who.email + R"(","password":")" + who.password + '"' + more + '}', {}));
        refreshToken = reply.text("refreshToken");
        return reply.text("idToken");
    }

    /// As another program would do it.
    S crypt(const S &job, const S &text, bool encrypt = true) const
    {
        const QStringList way = encrypt ? QStringList() : QStringList(QStringLiteral("-d"));
        return run("openssl",
                   QStringList{QStringLiteral("enc"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-iv"),
                               QStringLiteral("5C19E307A24F6BD0913E28C7F40A66B5"), QStringLiteral("-K"),
                               QString::fromLatin1(b(portal.jobKey(job)).toHex())} +
                       way,
                   text);
    }

    Reply uploadAddress(const S &job) { return send(request("GET", "job/files/uploadUrl/" + job, "", token, "")); }

    /// The request that an address object asks for.
    static S filled(const QJsonObject &address, const S &name, const S &file)
    {
        const auto fill = [&](const QJsonValue &text) {
            const S encoded = QString::fromLatin1(QUrl::toPercentEncoding(q(name))).toStdString();
            return replaced(replaced(replaced(s(text), "#fileName#", name), "#fileSize#", std::to_string(file.size())),
                            "#urlEncodedFileName#", encoded);
        };
        const QJsonObject headers = address[QLatin1String("headers")].toObject();
        const QJsonObject fields = address[QLatin1String("formFields")].toObject();
        S head = s(address[QLatin1String("method")]) + ' ' +
                 fill(address[QLatin1String("uri")]).substr(S("https://portal:1").size()) + " HTTP/1.1\r\nHost: p\r\n";
        for (auto header = headers.begin(); header != headers.end(); ++header)
            head += header.key().toStdString() + ": " + fill(header.value()) + "\r\n";
        S body = fields.isEmpty() ? file : "";
        for (auto field = fields.begin(); field != fields.end(); ++field)
            body += "--x y\r\nContent-Disposition: form-data; name=\"" + field.key().toStdString() + "\"\r\n\r\n" +
                    s(field.value()) + "\r\n";
        if (!fields.isEmpty() && !name.empty())
            body += "--x y\r\ncontent-disposition: form-data; name=\"file\"; filename=\"" +
                    replaced(name, "\"", "%22") + "\"\r\nX: y\r\n\r\n" + file + "\r\n";
        if (!fields.isEmpty())
            head += "Content-Type: multipart/form-data; boundary=\"x y\"\r\n", body += "--x y--\r\n";
        return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    Portal portal{quick()};
    S refreshToken;
    S token = login(0);
};

} // namespace PortalTests
