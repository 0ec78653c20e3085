#pragma once

#include <QByteArray>
#include <QIODevice>

namespace Velmora {

/// A request body that can be read once. The network layer repeats a request whose connection died
/// before the answer by rewinding its body; a body that cannot be rewound makes it fail instead, so
/// that no job is ever submitted twice.
class OneShotBody : public QIODevice {
    Q_OBJECT
public:
    explicit OneShotBody(QByteArray bytes, QObject *parent = nullptr);

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;
    bool atEnd() const override { return bytesAvailable() == 0; }

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    qint64 m_taken = 0;
};

} // namespace Velmora
