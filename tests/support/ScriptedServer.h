#pragma once

// A TLS server on loopback that shows what a client really sent and answers as a test says, byte for
// byte. It lives on the test's own thread and works while that thread handles events.
//
//     Loopback loopback;                                     // Loopback.h: a server that the library uses
//     ScriptedServer &server = loopback.server;
//     server.next(answer(200, R"({"jobId":"J1"})"));         // for the next request; then the one after it ...
//     server.next(answer(500).paused(20));                   // 20 bytes, the rest after resume()
//     server.next(answer(200, body).cut(100));               // 100 bytes, then the connection closes
//     server.next(hangUp());                                 // reads the request and closes
//     server.next(silence());                                // reads the request, never answers
//     server.setHandler([](const ReceivedRequest &request) { // for all requests beyond those
//         return request.verb == "PUT" ? answer(200) : answer(404);
//     });
//     api.getJobDetails("J1", callback);
//     ASSERT_TRUE(waitUntil([&] { return called == 1; }));   // Loopback.h
//     EXPECT_EQ(server.requests().last().body, expected);
//
// A request without a script is answered with 200 and "{}". Connections are kept alive and numbered
// from 1. Big bodies: `Answer::more` makes one piece by piece, `setBodyLimit` bounds what is kept of
// an upload. The server never closes a connection unless told to.

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QTcpServer>

#include <functional>

struct ReceivedRequest {
    int connection = 0;
    QByteArray verb;
    QByteArray target;                            ///< path and query as sent
    QByteArray head;                              ///< raw, with the blank line
    QList<QPair<QByteArray, QByteArray>> headers; ///< as sent, in order
    QByteArray body;                              ///< as far as the body limit allows
    qint64 bodySize = 0;

    /// The header's value, whatever the case of its name; null when it was not sent.
    QByteArray header(const char *name) const;
};

struct Answer {
    QByteArray bytes;                 ///< as they go on the wire, the head included
    std::function<QByteArray()> more; ///< then pieces until an empty one; asked only when there is room
    qint64 pauseAt = -1;              ///< after that many bytes the answer waits for `resume`
    bool close = false;               ///< the connection closes after the last byte

    Answer paused(qint64 at = 0) const;
    Answer cut(qint64 at) const;
    Answer closed() const;
};

/// An HTTP/1.1 answer with its length. @param headers  more of them, each ended by CR LF
Answer answer(int status, const QByteArray &body = {}, const QByteArray &contentType = "application/json",
              const QByteArray &headers = {});
Answer hangUp();
Answer silence();

class ScriptedConnection;

class ScriptedServer : public QTcpServer {
public:
    using Handler = std::function<Answer(const ReceivedRequest &)>;

    /// What is done with connections to come.
    enum class Accept {
        Serve,
        DropUnread,  ///< close after the handshake, before a byte of the request is read
        NoHandshake, ///< accept and stay silent
        StallBody,   ///< read a request's head, and its body only after `resume`
    };

    ScriptedServer();
    ~ScriptedServer() override;

    QByteArray host() const; ///< "127.0.0.1:port"

    void next(const Answer &scripted) { m_script.append(scripted); }
    void setHandler(Handler handler) { m_handler = std::move(handler); }
    void setAccept(Accept accept) { m_accept = accept; }
    void setBodyLimit(qint64 bytes) { m_bodyLimit = bytes; }
    /// Lets everything that pauses now, or the oldest of it, go on.
    void resume();
    void resumeOldest();
    int pausing() const;

    const QList<ReceivedRequest> &requests() const { return m_requests; } ///< read in full, in order
    int requestsBegun() const { return m_begun; }                         ///< heads read
    int connections() const { return m_connections; }                     ///< accepted so far
    int openConnections() const { return m_open; }

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    friend class ScriptedConnection;
    Answer answerFor(const ReceivedRequest &request);

    QList<Answer> m_script;
    Handler m_handler;
    Accept m_accept = Accept::Serve;
    qint64 m_bodyLimit = -1;
    QList<ReceivedRequest> m_requests;
    QList<ScriptedConnection *> m_pausing;
    int m_begun = 0;
    int m_connections = 0;
    int m_open = 0;
};
