#include "transport/RequestBody.h"

#include <algorithm>
#include <cstring>

namespace Velmora {

RequestBody::RequestBody(QByteArray head, std::unique_ptr<QFile> file, QByteArray tail)
    : m_head(std::move(head))
    , m_file(std::move(file))
    , m_tail(std::move(tail))
    , m_fileSize(m_file ? m_file->size() : 0)
    , m_size(m_head.size() + m_fileSize + m_tail.size())
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void RequestBody::close()
{
    QIODevice::close();
    m_file.reset();
}

qint64 RequestBody::readData(char *data, qint64 maxSize)
{
    const auto copy = [&](const QByteArray &from, qint64 offset) {
        const qint64 count = std::min(maxSize, from.size() - offset);
        std::memcpy(data, from.constData() + offset, static_cast<size_t>(count));
        return count;
    };
    const qint64 inFile = m_taken - m_head.size();
    qint64 count = -1;
    if (m_taken < m_head.size())
        count = copy(m_head, m_taken);
    else if (inFile < m_fileSize && m_file)
        count = m_file->read(data, std::min(maxSize, m_fileSize - inFile));
    else if (m_taken < m_size && inFile >= m_fileSize)
        count = copy(m_tail, inFile - m_fileSize);
    if (count <= 0) // the file has become shorter than it was
        return m_taken == m_size && maxSize == 0 ? 0 : -1;
    m_taken += count;
    return count;
}

} // namespace Velmora
