#include "portal/http/Http.h"

#include "portal/http/Text.h"

namespace VelmoraPortal {
namespace {

class TextBytes : public BodySource {
public:
    explicit TextBytes(std::string text)
        : m_text(std::move(text))
    {
    }
    std::uint64_t size() const override { return m_text.size(); }
    std::size_t give(char *to, std::size_t room) override
    {
        const std::size_t count = m_text.copy(to, room, m_given);
        m_given += count;
        return count;
    }

private:
    std::string m_text;
    std::size_t m_given = 0;
};

class Discarding : public BodySink {
public:
    explicit Discarding(Answer answer)
        : m_answer(std::move(answer))
    {
    }
    void take(const char *, std::size_t) override {}
    Answer finish() override { return std::move(m_answer); }
    bool isRefused() const override { return true; }

private:
    Answer m_answer;
};

} // namespace

const std::string *findHeader(const Headers &headers, std::string_view name)
{
    const std::string wanted = lowered(std::string(name));
    for (const auto &[key, value] : headers)
        if (lowered(key) == wanted)
            return &value;
    return nullptr;
}

std::shared_ptr<BodySource> textBytes(std::string text) { return std::make_shared<TextBytes>(std::move(text)); }

std::unique_ptr<BodySink> discarding(Answer answer) { return std::make_unique<Discarding>(std::move(answer)); }

} // namespace VelmoraPortal
