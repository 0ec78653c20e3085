#include "transport/Gzip.h"

#include <zlib.h>

#include <array>
#include <memory>

namespace Velmora {

std::optional<QByteArray> gunzip(const QByteArray &packed, qint64 limit)
{
    z_stream stream{};
    if (inflateInit2(&stream, MAX_WBITS + 16) != Z_OK) // 16: gzip, and its trailer is checked
        return {};
    const std::unique_ptr<z_stream, decltype(&inflateEnd)> end(&stream, inflateEnd);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData())); // is only read
    stream.avail_in = static_cast<uInt>(packed.size());
    QByteArray content;
    for (std::array<char, 16384> buffer;;) {
        stream.next_out = reinterpret_cast<Bytef *>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        const int state = inflate(&stream, Z_NO_FLUSH);
        const int count = static_cast<int>(buffer.size() - stream.avail_out);
        if ((state != Z_OK && state != Z_STREAM_END) || content.size() + count > limit)
            return {};
        content.append(buffer.data(), count);
        if (state == Z_STREAM_END && stream.avail_in == 0)
            return content;
        if (state == Z_STREAM_END && inflateReset(&stream) != Z_OK) // one more member follows
            return {};
    }
}

} // namespace Velmora
