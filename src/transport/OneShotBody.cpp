#include "transport/OneShotBody.h"

#include <algorithm>
#include <cstring>

namespace Velmora {

OneShotBody::OneShotBody(QByteArray bytes, QObject *parent)
    : QIODevice(parent)
    , m_bytes(std::move(bytes))
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 OneShotBody::bytesAvailable() const { return m_bytes.size() - m_taken + QIODevice::bytesAvailable(); }

qint64 OneShotBody::readData(char *data, qint64 maxSize)
{
    const qint64 count = std::min<qint64>(maxSize, m_bytes.size() - m_taken);
    if (count == 0)
        return maxSize == 0 ? 0 : -1;
    std::memcpy(data, m_bytes.constData() + m_taken, static_cast<size_t>(count));
    m_taken += count;
    return count;
}

} // namespace Velmora
