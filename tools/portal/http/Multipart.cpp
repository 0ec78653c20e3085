#include "portal/http/Multipart.h"

#include "portal/http/Http.h"
#include "portal/http/Text.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxHead = 16 * 1024;
constexpr std::size_t maxTail = 16;
constexpr int maxParts = 32;
const std::string lineEnd = "\r\n";

[[noreturn]] void refuse(const std::string &problem) { throw Refusal(400, "The form is not valid: " + problem); }

/// Decodes the three characters that a quoted name of a form holds encoded.
std::string unquoted(std::string text)
{
    const std::pair<const char *, const char *> marks[] = {{"%22", "\""}, {"%0D", "\r"}, {"%0A", "\n"}};
    for (const auto &[mark, plain] : marks)
        for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; ++at)
            text.replace(at, 3, plain);
    return text;
}

/// Removes `; name="value"` from the front.
bool takeParameter(std::string &text, std::string &name, std::string &value)
{
    if (text.empty())
        return false;
    const auto equals = text.find('=');
    if (text[0] != ';' || equals == std::string::npos)
        refuse("its part heads are not as they should be");
    name = lowered(trimmed(text.substr(1, equals - 1)));
    const bool quoted = equals + 1 < text.size() && text[equals + 1] == '"';
    const auto end = quoted ? text.find('"', equals + 2) : std::min(text.find(';', equals), text.size());
    if (end == std::string::npos)
        refuse("a quote is not closed");
    value = quoted ? text.substr(equals + 2, end - equals - 2) : trimmed(text.substr(equals + 1, end - equals - 1));
    text = trimmed(text.substr(quoted ? end + 1 : end));
    return true;
}

} // namespace

std::string Multipart::boundaryOf(const std::string &contentType)
{
    const auto semicolon = std::min(contentType.find(';'), contentType.size());
    if (lowered(trimmed(contentType.substr(0, semicolon))) != "multipart/form-data")
        throw Refusal(415, "The content type must be \"multipart/form-data\", but is \"" + contentType + "\"");
    std::string rest = contentType.substr(semicolon);
    std::string name;
    std::string value;
    while (takeParameter(rest, name, value))
        if (name == "boundary" && !value.empty() && value.size() <= 70)
            return value;
    refuse("its content type names no boundary");
}

Multipart::Multipart(const std::string &boundary, MultipartEvents &events)
    : m_delimiter(lineEnd + "--" + boundary)
    , m_events(events)
    , m_rest(lineEnd) // no line end precedes the first delimiter
{
}

void Multipart::take(const char *bytes, std::size_t size)
{
    m_rest.append(bytes, size);
    while (step()) {
    }
}

bool Multipart::step()
{
    switch (m_state) {
    case State::Body:
        return takeBody();
    case State::AfterDelimiter:
        return takeDelimiterEnd();
    case State::Head:
        return takeHead();
    case State::End:
        break;
    }
    if (m_rest.size() > maxTail)
        refuse("something follows its end");
    return false;
}

bool Multipart::takeBody()
{
    const std::size_t end = m_rest.find(m_delimiter);
    const bool found = end != std::string::npos;
    const std::size_t kept = m_delimiter.size() - 1;
    const std::size_t count = found ? end : m_rest.size() - std::min(kept, m_rest.size());
    if (count > 0 && !m_inPart)
        refuse("it does not begin with its boundary");
    if (count > 0)
        m_events.data(m_rest.data(), count);
    m_rest.erase(0, found ? count + m_delimiter.size() : count);
    if (!found)
        return false;
    if (m_inPart)
        m_events.partEnd();
    m_inPart = false;
    m_state = State::AfterDelimiter;
    return true;
}

bool Multipart::takeDelimiterEnd()
{
    if (m_rest.size() < 2)
        return false;
    const std::string end = m_rest.substr(0, 2);
    if (end != lineEnd && end != "--")
        refuse("its boundary is followed by something else");
    if (end == lineEnd && ++m_parts > maxParts)
        refuse("it has too many parts");
    m_rest.erase(0, 2);
    m_state = end == lineEnd ? State::Head : State::End;
    return true;
}

bool Multipart::takeHead()
{
    const auto end = m_rest.find("\r\n\r\n");
    if (std::min(end, m_rest.size()) > maxHead)
        refuse("the head of a part is too long");
    if (end == std::string::npos)
        return false;
    const std::string head = m_rest.substr(0, end + lineEnd.size());
    m_rest.erase(0, end + 2 * lineEnd.size());
    std::string name;
    std::string fileName;
    bool isFile = false;
    for (std::size_t from = 0; from < head.size();) {
        const auto lineStop = head.find(lineEnd, from);
        const std::string line = head.substr(from, lineStop - from);
        from = lineStop + lineEnd.size();
        const auto colon = line.find(':');
        if (colon == std::string::npos)
            refuse("its part heads are not as they should be");
        if (lowered(line.substr(0, colon)) != "content-disposition")
            continue;
        std::string rest = trimmed(line.substr(colon + 1));
        const auto semicolon = std::min(rest.find(';'), rest.size());
        if (lowered(trimmed(rest.substr(0, semicolon))) != "form-data")
            refuse("its parts must be of the disposition \"form-data\"");
        rest.erase(0, semicolon);
        std::string key;
        std::string value;
        while (takeParameter(rest, key, value)) {
            isFile = isFile || key == "filename";
            (key == "filename" ? fileName : key == "name" ? name : key) = unquoted(value);
        }
    }
    if (name.empty())
        refuse("a part has no name");
    m_events.part(name, isFile, fileName);
    m_inPart = true;
    m_state = State::Body;
    return true;
}

void Multipart::finish() const
{
    if (m_state != State::End)
        refuse("it ends too early");
}

} // namespace VelmoraPortal
