#include "support/ScriptedServer.h"

#include "support/Loopback.h"

QByteArray ReceivedRequest::header(const QByteArray &name) const
{
    for (const QByteArray &line : head.split('\n'))
        if (line.toLower().startsWith(name.toLower() + ':'))
            return line.mid(name.size() + 1).trimmed();
    return {};
}

Answer answer(int status, const QByteArray &body, const QByteArray &contentType, const QByteArray &headers)
{
    Answer made;
    made.bytes = "HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\n" + headers;
    if (status == 101 || status == 204 || status == 304) // have no body
        made.bytes += "\r\n";
    else
        made.bytes += "Content-Type: " + contentType + "\r\nContent-Length: " + QByteArray::number(body.size()) +
                      "\r\n\r\n" + body;
    return made;
}

class ScriptedConnection : public QObject {
public:
    ScriptedConnection(ScriptedServer *server, qintptr descriptor, int number)
        : QObject(server)
        , m_server(server)
        , m_number(number)
    {
        m_socket.setSslConfiguration(serverConfiguration());
        m_socket.setSocketDescriptor(descriptor);
        connect(&m_socket, &QSslSocket::disconnected, this, [this] {
            m_server->m_pausing.removeAll(this);
            m_server->m_interrupted.removeAll(this);
            m_server->m_open.remove(m_number);
            m_server->ended(m_number);
            deleteLater();
        });
        connect(&m_socket, &QSslSocket::readyRead, this, [this] { read(); });
        m_socket.startServerEncryption();
    }

    void resume() { write(); }
    void readOn()
    {
        m_reading = true;
        m_socket.setReadBufferSize(0);
        read();
    }
    QSslSocket *socket() { return &m_socket; }

private:
    void read()
    {
        if (!m_reading)
            return;
        m_buffer += m_socket.readAll();
        if (m_answer.bytes.startsWith("HTTP/1.1 101"))
            return m_server->upgraded(m_number, std::exchange(m_buffer, {}));
        const int end = m_buffer.indexOf("\r\n\r\n") + 4;
        if (m_answering || end < 4)
            return;
        const QList<QByteArray> words = m_buffer.left(m_buffer.indexOf('\r')).split(' ');
        if (interrupt(words.value(1), m_buffer.size() - end))
            return;
        ReceivedRequest request{m_number, words.value(0), words.value(1), m_buffer.left(end), {}};
        const int size = request.header("Content-Length").toInt();
        if (m_buffer.size() < end + size)
            return;
        request.body = m_buffer.mid(end, size);
        m_buffer.remove(0, end + size);
        m_answering = true;
        m_answer = m_server->answerFor(request);
        write();
    }

    bool interrupt(const QByteArray &target, int received)
    {
        const auto &all = m_server->m_interruptions;
        const auto found =
            std::find_if(all.keyBegin(), all.keyEnd(), [&](const auto &key) { return target.startsWith(key); }).base();
        if (found == all.end() || received < found->after)
            return false;
        m_reading = false; // writing may receive more
        const Interruption::End end = found->end;
        m_socket.write(found->answer.bytes);
        m_socket.flush();
        if (end == Interruption::Closes) {
            m_socket.disconnectFromHost();
        } else if (end == Interruption::Resets) {
            m_socket.abort(); // resets, since there are bytes that were not read
        } else {
            m_socket.setReadBufferSize(1);
            m_server->m_interrupted.append(this);
        }
        return true;
    }

    void write()
    {
        if (m_answer.pauseAt >= 0) {
            m_socket.write(m_answer.bytes.left(m_answer.pauseAt));
            m_answer = {m_answer.bytes.mid(m_answer.pauseAt), -1, m_answer.close};
            m_server->m_pausing.append(this);
            return;
        }
        m_socket.write(m_answer.bytes);
        m_answering = false;
        if (m_answer.close)
            m_socket.disconnectFromHost();
        else if (!m_buffer.isEmpty())
            read();
    }

    ScriptedServer *m_server;
    QSslSocket m_socket;
    const int m_number;
    QByteArray m_buffer;
    bool m_answering = false, m_reading = true;
    Answer m_answer;
};

ScriptedServer::ScriptedServer()
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no loopback port: %s", qPrintable(errorString()));
}

ScriptedServer::~ScriptedServer()
{
    const auto open = m_open; // each removes itself
    qDeleteAll(open);
}

QByteArray ScriptedServer::host() const { return "127.0.0.1:" + QByteArray::number(serverPort()); }

void ScriptedServer::resume()
{
    while (!m_pausing.isEmpty())
        m_pausing.takeFirst()->resume();
}

void ScriptedServer::readOn()
{
    m_interruptions.clear();
    while (!m_interrupted.isEmpty())
        m_interrupted.takeFirst()->readOn();
}

void ScriptedServer::incomingConnection(qintptr descriptor)
{
    const int number = ++m_connections;
    m_open.insert(number, new ScriptedConnection(this, descriptor, number));
}

QSslSocket *ScriptedServer::socket(int connection) const
{
    ScriptedConnection *open = m_open.value(connection);
    return open ? open->socket() : nullptr;
}

Answer ScriptedServer::answerFor(const ReceivedRequest &request)
{
    m_requests.append(request);
    if (!m_script.isEmpty())
        return m_script.takeFirst();
    return m_handler ? m_handler(request) : answer(200, "{}");
}
