#pragma once

// The portal as independent clients see it: TLS sockets and `openssl enc`.

#include "portal/Portal.h"
#include "support/Loopback.h"

namespace PortalTests {

using namespace VelmoraPortal;
using namespace std::chrono_literals;
using std::string;

inline QString toQString(const string &text) { return QString::fromStdString(text); }
inline QByteArray toBytes(const string &text) { return QByteArray::fromStdString(text); }
inline string toString(const QJsonValue &value) { return value.toString().toStdString(); }

struct Reply {
    int status = 0; ///< 0: no complete answer was received
    string head, body;
    bool closed = false; ///< by the portal
    QJsonObject object() const { return QJsonDocument::fromJson(toBytes(body)).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(toBytes(body)).array(); }
    string text(const char *key) const { return toString(object()[key]); }
};

inline string replaced(const string &text, const string &what, const string &with)
{
    return toBytes(text).replace(toBytes(what), toBytes(with)).toStdString();
}

inline string request(const string &verb, const string &path, const string &body, const string &authorization,
                      const string &type = "application/json")
{
    return verb + " /api/" + path + " HTTP/1.1\r\nHost: portal:1\r\n" +
           (type.empty() ? "" : "Content-Type: " + type + "\r\n") +
           (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

inline string submission(const string &jobId)
{
    return R"({"jobId":")" + jobId +
           R"(","accountId":"ACC-1001","jobName":"Beam-140309-050321","mainFile":"dir/b.trninp","dockerTag":" ",
        "fileDependencies":["a"],"fileAliases":["b"],"operation":"mpi","simulations":[{"consoleParameters":"-x 1"},
        {"consoleParameters":"-x 2"}],"jobType":"Cloud Configuration - Simulation Sweep","precision":"single",
        "coresRequired":4,"coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,"application":"test"})";
}

inline string run(const char *program, const QStringList &arguments, const string &input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(toBytes(input));
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0 ? process.readAllStandardOutput().toStdString() : "";
}

struct PortalTest : testing::Test {
    PortalTest() { tick.start(20); }

    /// Sends a request and reads until the answer is complete, the portal closes or `patience` milliseconds have
    /// passed.
    Reply send(const string &bytes, int patience = 5000) const
    {
        QSslSocket socket;
        socket.connectToHostEncrypted("127.0.0.1", portal.port());
        socket.waitForEncrypted();
        socket.write(toBytes(bytes));
        Reply reply;
        string all;
        for (QDeadlineTimer deadline(patience);; socket.waitForReadyRead(int(deadline.remainingTime()))) {
            all += socket.readAll().toStdString();
            const auto end = all.find("\r\n\r\n"), length = all.find("Content-Length: ");
            reply.closed = socket.state() != QAbstractSocket::ConnectedState;
            reply.head = all.substr(0, end);
            reply.body = end == string::npos ? "" : all.substr(end + 4);
            if (end != string::npos && (length < end ? reply.body.size() >= std::stoul(all.substr(length + 16))
                                                     : reply.closed || all.substr(9, 3) == "204"))
                reply.status = std::stoi(all.substr(9, 3));
            if (reply.status != 0 || reply.closed || deadline.hasExpired())
                return reply;
        }
    }
    Reply post(const string &path, const string &body) const { return send(request("POST", path, body, token)); }
    string newJob() const { return post("job/init", R"({"accountId":"ACC-1001"})").text("jobId"); }

    /// Encrypts as another program would do it.
    string crypt(const string &job, const string &text) const
    {
        const QString key = toBytes(portal.jobKey(job)).toHex(), iv = "5C19E307A24F6BD0913E28C7F40A66B5";
        return run("openssl", {"enc", "-aes-256-cbc", "-iv", iv, "-K", key}, text);
    }

    /// The request that an address object describes; an uploaded file has the name "n".
    static string filled(const QJsonObject &address, const string &file = {})
    {
        const auto fill = [&](const QJsonValue &text) {
            const string named = replaced(replaced(toString(text), "#fileName#", "n"), "#urlEncodedFileName#", "n");
            return replaced(named, "#fileSize#", std::to_string(file.size()));
        };
        const QJsonObject headers = address["headers"].toObject(), fields = address["formFields"].toObject();
        string head = toString(address["method"]) + ' ' +
                      fill(address["uri"]).substr(string("https://portal:1").size()) + " HTTP/1.1\r\nHost: p\r\n";
        for (const QString &header : headers.keys())
            head += header.toStdString() + ": " + fill(headers[header]) + "\r\n";
        string body = fields.isEmpty() ? file : "";
        for (const QString &field : fields.keys())
            body += "--x y\r\nContent-Disposition: form-data; name=\"" + field.toStdString() + "\"\r\n\r\n" +
                    toString(fields[field]) + "\r\n";
        if (!fields.isEmpty()) {
            head += "Content-Type: multipart/form-data; boundary=\"x y\"\r\n";
            if (!file.empty())
                body += "--x y\r\ncontent-disposition: form-data; name=\"file\"; filename=\"n\"\r\nX: y\r\n\r\n" +
                        file + "\r\n";
            body += "--x y--\r\n";
        }
        return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    string upload(const string &job, const string &file) const
    {
        return filled(send(request("GET", "job/files/uploadUrl/" + job, "", token, "")).object(), file);
    }

    QTimer tick; ///< wakes the waiting test: the portal's thread posts no events here
    Portal portal{Options{0, {}, 400ms, 3600s, {}, false, {}}};
    ScopedTrust trust{toBytes(portal.caPem())};
    const SeededUser &user = seededUsers()[0];
    const string login = R"({"emailAddress":")" + user.email + R"(","password":")" + user.password + "\"}";
    const string token = send(request("POST", "auth/login", login, {})).text("idToken");
};

} // namespace PortalTests
