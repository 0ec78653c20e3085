#pragma once

#include <QByteArray>
#include <QFile>
#include <QIODevice>

#include <memory>

namespace Velmora {

/// A request body that can be read once: bytes, or a file with the bytes of a form around it. The network layer repeats
/// a request whose connection broke before the answer by rewinding its body. A body that cannot be rewound makes the
/// request fail instead, so no job is submitted twice.
class RequestBody : public QIODevice {
    Q_OBJECT
public:
    /// @param file  open for reading, or null
    RequestBody(QByteArray head, std::unique_ptr<QFile> file, QByteArray tail);

    bool isSequential() const override { return true; }
    bool seek(qint64) override { return false; } // without a warning: the network layer does try
    /// The whole body in bytes.
    qint64 size() const override { return m_size; }
    qint64 bytesAvailable() const override { return m_size - m_taken + QIODevice::bytesAvailable(); }
    bool atEnd() const override { return bytesAvailable() == 0; }
    void close() override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_head;
    std::unique_ptr<QFile> m_file;
    QByteArray m_tail;
    qint64 m_fileSize;
    qint64 m_size;
    qint64 m_taken = 0;
};

} // namespace Velmora
