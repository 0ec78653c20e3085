#include "portal/http/Http.h"

#include <algorithm>

#include <boost/crc.hpp>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxStored = 65535; // bytes of one stored deflate block
constexpr std::size_t blockHead = 5;

void append(std::string &text, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>((value >> (8 * i)) & 0xFFU);
}

/*
 * header | stored block … | last stored block | CRC-32 and size
 *
 * Every block but the last is full, so the whole size follows from the body's size. An empty body has
 * one empty block.
 */
class Gzipped : public BodySource {
public:
    explicit Gzipped(std::shared_ptr<BodySource> source)
        : m_source(std::move(source))
        , m_left(m_source->size())
        , m_pending("\x1f\x8b\x08\0\0\0\0\0\0\xff", 10)
    {
    }

    std::uint64_t size() const override
    {
        const std::uint64_t plain = m_source->size();
        const std::uint64_t blocks = std::max<std::uint64_t>(1, (plain + maxStored - 1) / maxStored);
        return 10 + blocks * blockHead + plain + 8;
    }

    std::size_t give(char *to, std::size_t room) override
    {
        if (m_given == m_pending.size()) {
            m_pending.clear();
            m_given = 0;
            if (!m_ended && !addBlock())
                return 0;
        }
        const std::size_t count = m_pending.copy(to, room, m_given);
        m_given += count;
        return count;
    }

private:
    bool addBlock()
    {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(maxStored, m_left));
        std::string block(size, '\0');
        std::string piece(size + 1024, '\0');
        for (std::size_t filled = 0; filled < size;) {
            // A source needs its minimal room even when the block has less left.
            if (m_over.empty()) {
                const std::size_t count = m_source->give(piece.data(), piece.size());
                if (count == 0)
                    return false;
                m_over.assign(piece, 0, count);
            }
            const std::size_t count = m_over.copy(block.data() + filled, size - filled);
            m_over.erase(0, count);
            filled += count;
        }
        m_left -= size;
        m_ended = m_left == 0;
        m_pending += static_cast<char>(m_ended ? 1 : 0);
        append(m_pending, static_cast<std::uint32_t>(size), 2);
        append(m_pending, ~static_cast<std::uint32_t>(size), 2);
        m_pending += block;
        m_crc.process_bytes(block.data(), block.size());
        if (m_ended) {
            append(m_pending, m_crc.checksum(), 4);
            append(m_pending, static_cast<std::uint32_t>(m_source->size()), 4);
        }
        return true;
    }

    std::shared_ptr<BodySource> m_source;
    std::uint64_t m_left;
    std::string m_pending;
    std::string m_over;
    std::size_t m_given = 0;
    boost::crc_32_type m_crc;
    bool m_ended = false;
};

} // namespace

std::shared_ptr<BodySource> gzipped(std::shared_ptr<BodySource> source)
{
    return std::make_shared<Gzipped>(std::move(source));
}

} // namespace VelmoraPortal
