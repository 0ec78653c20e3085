#include "portal/storage/Ranges.h"

#include "portal/http/Text.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace VelmoraPortal {
namespace {

/// A part of another source.
class PartOf : public BodySource {
public:
    PartOf(std::shared_ptr<BodySource> source, std::uint64_t from, std::uint64_t size)
        : m_source(std::move(source))
        , m_skip(from - m_source->skip(from))
        , m_size(size)
        , m_left(size)
    {
    }

    std::uint64_t size() const override { return m_size; }

    std::size_t give(char *to, std::size_t room) override
    {
        std::size_t count = 0;
        std::size_t skipped = 0;
        while (m_left > 0 && count == skipped) {
            count = m_source->give(to, room);
            skipped = static_cast<std::size_t>(std::min<std::uint64_t>(m_skip, count));
            m_skip -= skipped;
            if (count == 0)
                return 0;
        }
        std::memmove(to, to + skipped, count - skipped);
        const auto given = static_cast<std::size_t>(std::min<std::uint64_t>(m_left, count - skipped));
        m_left -= given;
        return given;
    }

private:
    std::shared_ptr<BodySource> m_source;
    std::uint64_t m_skip;
    std::uint64_t m_size;
    std::uint64_t m_left;
};

struct Range {
    long long first;
    long long last; ///< negative: to the end
};

/// The range of "bytes=FIRST-" or "bytes=FIRST-LAST"; no value for any other text.
std::optional<Range> parsed(const std::string &text)
{
    const std::string unit = "bytes=";
    const std::size_t dash = text.find('-');
    if (lowered(text.substr(0, unit.size())) != unit || dash == std::string::npos)
        return {};
    const std::string last = text.substr(dash + 1);
    const Range range = {numberOf(text.substr(unit.size(), dash - unit.size())), numberOf(last)};
    const bool valid = range.first >= 0 && (last.empty() || range.last >= range.first);
    return valid ? std::optional<Range>(range) : std::nullopt;
}

} // namespace

void answerRange(const HttpRequest &head, const std::string &etag, HttpResponse &response)
{
    const auto size = static_cast<long long>(response.source->size());
    const std::string *text = findHeader(head.headers, "Range");
    const std::string *condition = findHeader(head.headers, "If-Range");
    const auto range = text && (!condition || *condition == etag) ? parsed(*text) : std::nullopt;
    if (range && range->first >= size) {
        response = {416, "application/json", R"({"message":"The range begins behind the end"})", {}, nullptr};
        response.headers.emplace_back("Content-Range", "bytes */" + std::to_string(size));
    } else if (range) {
        const long long last = range->last < 0 ? size - 1 : std::min(range->last, size - 1);
        response.status = 206;
        response.source = std::make_shared<PartOf>(std::move(response.source), range->first, last - range->first + 1);
        response.headers.emplace_back("Content-Range", "bytes " + std::to_string(range->first) + '-' +
                                                           std::to_string(last) + '/' + std::to_string(size));
    }
    response.headers.emplace_back("Accept-Ranges", "bytes");
    response.headers.emplace_back("ETag", etag);
}

} // namespace VelmoraPortal
