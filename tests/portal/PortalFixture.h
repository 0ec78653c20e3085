#pragma once

// The portal seen by clients of another make: bare TLS sockets and `openssl enc`.

#include "portal/Portal.h"
#include "support/Loopback.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QTimer>
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
    S text(const char *key) const { return s(object()[key]); }
};

inline S replaced(const S &text, const S &what, const S &with)
{
    return b(text).replace(b(what), b(with)).toStdString();
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

inline S run(const char *program, const QStringList &arguments, const S &input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(b(input));
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0 ? process.readAllStandardOutput().toStdString() : "";
}

class PortalTest : public testing::Test {
protected:
    PortalTest()
    {
        tick.start(20);
        portal.setJobDuration(400ms);
    }

    /// Sends one request and reads until its answer is whole, the portal closes, or `patience` is over.
    Reply send(const S &bytes, int patience = 5000) const
    {
        QSslSocket socket;
        socket.connectToHostEncrypted("127.0.0.1", portal.port());
        socket.waitForEncrypted();
        socket.write(b(bytes));
        Reply reply;
        S all;
        for (QDeadlineTimer deadline(patience);; socket.waitForReadyRead(int(deadline.remainingTime()))) {
            all += socket.readAll().toStdString();
            const auto end = all.find("\r\n\r\n"), length = all.find("Content-Length: ");
            reply.closed = socket.state() != QAbstractSocket::ConnectedState;
            reply.head = all.substr(0, end);
            reply.body = end == S::npos ? "" : all.substr(end + 4);
            if (end != S::npos && (length < end ? reply.body.size() >= std::stoul(all.substr(length + 16))
                                                : reply.closed || all.substr(9, 3) == "204"))
                reply.status = std::stoi(all.substr(9, 3));
            if (reply.status != 0 || reply.closed || deadline.hasExpired())
                return reply;
        }
    }
    Reply post(const S &path, const S &body) const { return send(request("POST", path, body, token)); }
    S newJob() const { return post("job/init", R"({"accountId":"ACC-1001"})").text("jobId"); }

    S login() const
    {
        const SeededUser &who = seededUsers()[0];
        const S body = R"({"emailAddress":")" + who.email + R"(","password":")" + who.password + "\"}";
        return send(request("POST", "auth/login", body, {})).text("idToken");
    }

    /// As another program would do it.
    S crypt(const S &job, const S &text) const
    {
        return run(
            "openssl",
            {"enc", "-aes-256-cbc", "-iv", "5C19E307A24F6BD0913E28C7F40A66B5", "-K", b(portal.jobKey(job)).toHex()},
            text);
    }

    /// The request that an address object asks for; a file goes up as "n".
    static S filled(const QJsonObject &address, const S &file = {})
    {
        const auto fill = [&](const QJsonValue &text) {
            const S named = replaced(replaced(s(text), "#fileName#", "n"), "#urlEncodedFileName#", "n");
            return replaced(named, "#fileSize#", std::to_string(file.size()));
        };
        const QJsonObject headers = address["headers"].toObject(), fields = address["formFields"].toObject();
        S head = s(address["method"]) + ' ' + fill(address["uri"]).substr(S("https://portal:1").size()) +
                 " HTTP/1.1\r\nHost: p\r\n";
        for (const QString &header : headers.keys())
            head += header.toStdString() + ": " + fill(headers[header]) + "\r\n";
        S body = fields.isEmpty() ? file : "";
        for (const QString &field : fields.keys())
            body += "--x y\r\nContent-Disposition: form-data; name=\"" + field.toStdString() + "\"\r\n\r\n" +
                    s(fields[field]) + "\r\n";
        if (!fields.isEmpty()) {
            head += "Content-Type: multipart/form-data; boundary=\"x y\"\r\n";
            if (!file.empty())
                body += "--x y\r\ncontent-disposition: form-data; name=\"file\"; filename=\"n\"\r\nX: y\r\n\r\n" +
                        file + "\r\n";
            body += "--x y--\r\n";
        }
        return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    S upload(const S &job, const S &file) const
    {
        return filled(send(request("GET", "job/files/uploadUrl/" + job, "", token, "")).object(), file);
    }

    QTimer tick; ///< the portal's thread wakes nobody here
    Portal portal;
    ScopedTrust trust{b(portal.caPem())};
    S token = login();
};

} // namespace PortalTests
