#include "transport/RequestBody.h"

#include <algorithm>
#include <cstring>

namespace Velmora {

RequestBody::RequestBody(const QByteArray &bytes)
    : m_bytes(bytes)
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 RequestBody::readData(char *data, qint64 maxSize)
{
    const qint64 count = std::min(maxSize, m_bytes.size() - m_taken);
    if (count <= 0)
        return maxSize == 0 ? 0 : -1;
    std::memcpy(data, m_bytes.constData() + m_taken, static_cast<size_t>(count));
    m_taken += count;
    return count;
}

} // namespace Velmora
