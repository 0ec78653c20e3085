#pragma once

// A TLS server on loopback that records what a client sent and answers as a test says, byte for byte.
// It lives on the test's own thread and works while that thread handles events. How answers are scripted:
//
//     Loopback loopback;                             // Loopback.h: a server that the library uses
//     loopback.server.next(answer(500).paused(20));  // for the next request: 20 bytes, the rest after resume()
//     loopback.server.next(answer(200).cut(100));    // then: 100 bytes, and the connection closes
//     loopback.server.next(hangUp());                // reads the request and closes; silence() never answers
//     loopback.server.setHandler(function);          // for every request after those: request -> answer
//     loopback.server.interrupt("/s/up", {1000, answer(413), Interruption::Resets}); // does not read the whole body
//
// A request without a script or a handler is answered with 200 and "{}". Connections are kept alive and
// numbered from 1. The server closes a connection only when a test says so.

#include <QtNetwork>

struct ReceivedRequest {
    int connection = 0;
    QByteArray verb, target; ///< path and query as sent
    QByteArray head, body;   ///< the head is raw, with the blank line

    /// The header's value, whatever the case of its name; null when it was not sent.
    QByteArray header(const QByteArray &name) const;
};

struct Answer {
    QByteArray bytes;   ///< as they go on the wire, the head included
    int pauseAt = -1;   ///< after that many bytes the answer waits for `resume`
    bool close = false; ///< the connection closes after the last byte

    Answer paused(int at = 0) const { return {bytes, at, close}; }
    Answer cut(int at) const { return {bytes.left(at), pauseAt, true}; }
    Answer closed() const { return {bytes, pauseAt, true}; }
};

/// An HTTP/1.1 answer with its length. @param headers  more of them, each ended by CR LF
Answer answer(int status, const QByteArray &body = {}, const QByteArray &contentType = "application/json",
              const QByteArray &headers = {});
/// Reads the request and closes; reads it and never answers.
inline Answer hangUp() { return Answer().closed(); }
inline Answer silence() { return Answer().paused(); }

/// What happens to a request before its body has been read.
struct Interruption {
    enum End { Closes, Resets, StopsReading };
    int after = 0; ///< bytes of the body
    Answer answer; ///< may be empty
    End end = StopsReading;
};

class ScriptedConnection;

class ScriptedServer : public QTcpServer {
public:
    using Handler = std::function<Answer(const ReceivedRequest &)>;

    ScriptedServer();
    ~ScriptedServer() override;

    QByteArray host() const; ///< "127.0.0.1:port"

    void next(const Answer &scripted) { m_script.append(scripted); }
    void setHandler(Handler handler) { m_handler = std::move(handler); }
    /// For requests whose target begins so; they are not among `requests`, unless they are read to their end.
    void interrupt(const QByteArray &target, const Interruption &how) { m_interruptions[target] = how; }
    void readOn();                                           ///< ends the interruptions: reads on where one stopped
    int interrupted() const { return m_interrupted.size(); } ///< connections on which it stopped reading
    void resume();                                           ///< continues every answer that pauses now
    int pausing() const { return m_pausing.size(); }

    const QList<ReceivedRequest> &requests() const { return m_requests; } ///< read in full, in order
    int openConnections() const { return m_open.size(); }

protected:
    void incomingConnection(qintptr descriptor) override;
    /// What comes on a connection whose last answer was 101.
    virtual void upgraded(int /*connection*/, const QByteArray & /*bytes*/) {}
    virtual void ended(int /*connection*/) {}
    QSslSocket *socket(int connection) const; ///< null when it has ended

private:
    friend class ScriptedConnection;
    Answer answerFor(const ReceivedRequest &request);

    QList<Answer> m_script;
    Handler m_handler;
    QList<ReceivedRequest> m_requests;
    QList<ScriptedConnection *> m_pausing, m_interrupted;
    QMap<QByteArray, Interruption> m_interruptions; ///< by the beginning of the target
    QMap<int, ScriptedConnection *> m_open;
    int m_connections = 0;
};
