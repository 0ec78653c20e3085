#include "support/ScriptedServer.h"

#include "support/Loopback.h"

#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

#include <algorithm>

QByteArray ReceivedRequest::header(const char *name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

Answer Answer::paused(qint64 at) const
{
    Answer copy = *this;
    copy.pauseAt = at;
    return copy;
}

Answer Answer::cut(qint64 at) const
{
    Answer copy = closed();
    copy.bytes.truncate(static_cast<int>(at));
    return copy;
}

Answer Answer::closed() const
{
    Answer copy = *this;
    copy.close = true;
    return copy;
}

Answer answer(int status, const QByteArray &body, const QByteArray &contentType, const QByteArray &headers)
{
    Answer made;
    made.bytes = "HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\n" + headers;
    if (status == 204 || status == 304) // have no body
        made.bytes += "\r\n";
    else
        made.bytes += "Content-Type: " + contentType + "\r\nContent-Length: " + QByteArray::number(body.size()) +
                      "\r\n\r\n" + body;
    return made;
}

Answer hangUp() { return Answer().closed(); }

Answer silence() { return Answer().paused(); }

class ScriptedConnection : public QObject {
public:
    ScriptedConnection(ScriptedServer *server, QSslSocket *socket, int number)
        : QObject(server)
        , m_server(server)
        , m_socket(socket)
        , m_number(number)
        , m_accept(server->m_accept)
    {
        m_socket->setParent(this);
        ++m_server->m_open;
        connect(m_socket, &QSslSocket::disconnected, this, [this] {
            m_server->m_pausing.removeAll(this);
            --m_server->m_open;
            deleteLater();
        });
        connect(m_socket, &QSslSocket::readyRead, this, [this] { read(); });
        connect(m_socket, &QSslSocket::encryptedBytesWritten, this, [this] { write(); });
        if (m_accept == ScriptedServer::Accept::DropUnread)
            connect(m_socket, &QSslSocket::encrypted, m_socket, &QSslSocket::disconnectFromHost);
        if (m_accept == ScriptedServer::Accept::StallBody)
            m_socket->setReadBufferSize(4096);
        if (m_accept != ScriptedServer::Accept::NoHandshake)
            m_socket->startServerEncryption();
    }

    void resume()
    {
        m_server->m_pausing.removeAll(this);
        if (m_stalled) {
            m_stalled = false;
            m_socket->setReadBufferSize(0);
            read();
            return;
        }
        m_answer.pauseAt = -1;
        write();
    }

private:
    void read()
    {
        if (m_accept == ScriptedServer::Accept::DropUnread || m_stalled)
            return;
        m_buffer += m_socket->readAll();
        if (m_missing < 0 && (m_answering || !readHead()))
            return;
        if (m_stalled)
            return;
        const QByteArray part = m_buffer.left(static_cast<int>(std::min<qint64>(m_missing, m_buffer.size())));
        m_buffer.remove(0, part.size());
        m_missing -= part.size();
        const qint64 limit = m_server->m_bodyLimit;
        const qint64 room = limit < 0 ? part.size() : std::max<qint64>(0, limit - m_request.body.size());
        m_request.body += part.left(static_cast<int>(room));
        if (m_missing > 0)
            return;
        m_missing = -1;
        m_answering = true;
        m_sent = m_offset = 0;
        m_answer = m_server->answerFor(m_request);
        write();
    }

    bool readHead()
    {
        const int end = m_buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return false;
        ++m_server->m_begun;
        m_request = {};
        m_request.connection = m_number;
        m_request.head = m_buffer.left(end + 4);
        m_buffer.remove(0, end + 4);
        QList<QByteArray> lines = m_request.head.left(end).split('\n');
        const QList<QByteArray> first = lines.takeFirst().trimmed().split(' ');
        m_request.verb = first.value(0);
        m_request.target = first.value(1);
        for (const QByteArray &line : qAsConst(lines)) {
            const int colon = line.indexOf(':');
            m_request.headers.append({line.left(colon), line.mid(colon + 1).trimmed()});
        }
        m_missing = m_request.bodySize = m_request.header("Content-Length").toLongLong();
        m_stalled = m_accept == ScriptedServer::Accept::StallBody;
        if (m_stalled)
            m_server->m_pausing.append(this);
        return true;
    }

    void write()
    {
        if (!m_answering)
            return;
        constexpr qint64 room = 256 * 1024;
        while (m_socket->bytesToWrite() + m_socket->encryptedBytesToWrite() < room) {
            if (m_offset == m_answer.bytes.size() && m_answer.more) {
                m_answer.bytes = m_answer.more();
                m_offset = 0;
            }
            qint64 count = std::min<qint64>(room, m_answer.bytes.size() - m_offset);
            if (m_answer.pauseAt >= 0)
                count = std::min(count, m_answer.pauseAt - m_sent);
            if (count == 0)
                break;
            m_socket->write(m_answer.bytes.constData() + m_offset, count);
            m_offset += count;
            m_sent += count;
        }
        if (m_answer.pauseAt >= 0 && m_sent == m_answer.pauseAt) {
            if (!m_server->m_pausing.contains(this))
                m_server->m_pausing.append(this);
            return;
        }
        if (m_offset < m_answer.bytes.size() || (m_answer.more && !m_answer.bytes.isEmpty()))
            return;
        m_answering = false;
        if (m_answer.close)
            m_socket->disconnectFromHost();
        else if (!m_buffer.isEmpty())
            read();
    }

    ScriptedServer *m_server;
    QSslSocket *m_socket;
    const int m_number;
    const ScriptedServer::Accept m_accept;
    QByteArray m_buffer;
    ReceivedRequest m_request;
    qint64 m_missing = -1;  // of the body; negative between requests
    bool m_stalled = false; // does not read on
    bool m_answering = false;
    Answer m_answer;
    int m_offset = 0; // in the answer's present piece
    qint64 m_sent = 0;
};

ScriptedServer::ScriptedServer()
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no loopback port: %s", qPrintable(errorString()));
}

ScriptedServer::~ScriptedServer()
{
    // Sockets report their end while they are deleted, which uses the members.
    const QObjectList connections = children();
    for (QObject *connection : connections) {
        if (auto *scripted = dynamic_cast<ScriptedConnection *>(connection))
            delete scripted;
    }
}

QByteArray ScriptedServer::host() const { return "127.0.0.1:" + QByteArray::number(serverPort()); }

void ScriptedServer::resume()
{
    while (!m_pausing.isEmpty())
        resumeOldest();
}

void ScriptedServer::resumeOldest()
{
    if (!m_pausing.isEmpty())
        m_pausing.takeFirst()->resume();
}

int ScriptedServer::pausing() const { return m_pausing.size(); }

void ScriptedServer::incomingConnection(qintptr descriptor)
{
    auto *socket = new QSslSocket;
    socket->setSslConfiguration(serverConfiguration());
    socket->setSocketDescriptor(descriptor);
    new ScriptedConnection(this, socket, ++m_connections);
}

Answer ScriptedServer::answerFor(const ReceivedRequest &request)
{
    m_requests.append(request);
    if (!m_script.isEmpty())
        return m_script.takeFirst();
    return m_handler ? m_handler(request) : answer(200, "{}");
}
