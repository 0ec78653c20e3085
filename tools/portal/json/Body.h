#pragma once

#include "portal/json/Json.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// Reads the members of a JSON object. Throws a refusal (400) when a member is missing, has another type, is out of
/// range or is unknown.
class Body {
public:
    explicit Body(const Json &object, std::string where = {});

    std::string text(const char *key, bool mayBeEmpty = false, std::size_t longest = 65536);
    std::string text(const char *key, const std::set<std::string> &allowed);
    /// The value of that name; a refusal lists all names.
    template <typename T> T choice(const char *key, const std::map<std::string, T> &choices)
    {
        std::set<std::string> names;
        for (const auto &each : choices)
            names.insert(each.first);
        return choices.at(text(key, names));
    }
    long long integer(const char *key, long long least, long long most);
    double positive(const char *key);
    const Json &array(const char *key);
    std::vector<std::string> texts(const char *key);
    std::vector<int> integers(const char *key, long long least, long long most);
    bool has(const char *key) const { return m_object.contains(key); }
    /// Call it last: refuses all members that were not read.
    void end() const;

private:
    const Json &member(const char *key, const char *type, bool (Json::*is)() const noexcept);
    [[noreturn]] void refuse(const char *key, const std::string &problem) const;

    const Json &m_object;
    std::string m_where;
    std::set<std::string> m_known;
};

/// The text of an object that has no other member.
std::string onlyText(const Json &object, const char *key);

} // namespace VelmoraPortal
