#pragma once

#include <QByteArray>
#include <QIODevice>

namespace Velmora {

/// A request body that can be read once. The network layer repeats a request whose connection broke before the answer
/// by rewinding its body; one that cannot be rewound makes it fail instead, so that no job is submitted twice.
class RequestBody : public QIODevice {
    Q_OBJECT
public:
    explicit RequestBody(const QByteArray &bytes);

    bool isSequential() const override { return true; }
    bool seek(qint64) override { return false; } // without a warning: the network layer does try
    /// The whole body in bytes.
    qint64 size() const override { return m_bytes.size(); }
    qint64 bytesAvailable() const override { return m_bytes.size() - m_taken + QIODevice::bytesAvailable(); }
    bool atEnd() const override { return bytesAvailable() == 0; }

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    qint64 m_taken = 0;
};

} // namespace Velmora
