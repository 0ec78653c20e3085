#include "portal/http/Text.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

int hexValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

} // namespace

std::string decoded(const std::string &text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%' || i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0) {
            plain += text[i];
            continue;
        }
        plain += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
        i += 2;
    }
    return plain;
}

std::string encoded(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (plain || c == '-' || c == '.' || c == '_' || c == '~') {
            result += c;
            continue;
        }
        result += '%';
        result += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
        result += "0123456789ABCDEF"[static_cast<unsigned char>(c) & 15];
    }
    return result;
}

std::vector<std::string> segments(const std::string &path)
{
    std::vector<std::string> list;
    for (std::size_t from = 0; from <= path.size();) {
        const std::size_t slash = std::min(path.find('/', from), path.size());
        list.push_back(decoded(path.substr(from, slash - from)));
        from = slash + 1;
    }
    return list;
}

std::map<std::string, std::string> queryOf(const std::string &target)
{
    std::map<std::string, std::string> members;
    const std::size_t mark = target.find('?');
    for (std::size_t from = mark; from < target.size();) {
        const std::size_t end = std::min(target.find('&', from + 1), target.size());
        const std::string member = target.substr(from + 1, end - from - 1);
        const std::size_t equals = std::min(member.find('='), member.size());
        members.emplace(decoded(member.substr(0, equals)),
                        equals < member.size() ? decoded(member.substr(equals + 1)) : std::string());
        from = end;
    }
    return members;
}

std::string pathOf(const std::string &target) { return target.substr(0, target.find('?')); }

long long numberOf(const std::string &text)
{
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
        return -1;
    return std::stoll(text);
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return text;
}

std::string trimmed(const std::string &text)
{
    const auto from = text.find_first_not_of(" \t");
    return from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(" \t") + 1 - from);
}

} // namespace VelmoraPortal
