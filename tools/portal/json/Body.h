#pragma once

#include "portal/json/Json.h"

#include <set>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// Reads the members of a JSON object and turns it down (400) when one is missing, of another type, out
/// of range, or not known at all.
class Body {
public:
    explicit Body(const Json &object, std::string where = {});

    std::string text(const char *key, bool mayBeEmpty = false, std::size_t longest = 65536);
    std::string text(const char *key, const std::set<std::string> &allowed);
    long long integer(const char *key, long long least, long long most);
    double positive(const char *key);
    const Json &array(const char *key);
    std::vector<std::string> texts(const char *key);
    bool has(const char *key) const { return m_object.contains(key); }
    /// To be called last: refuses members that were not asked for.
    void end() const;

private:
    const Json &member(const char *key, const char *type, bool (Json::*is)() const noexcept);
    [[noreturn]] void refuse(const char *key, const std::string &problem) const;

    const Json &m_object;
    std::string m_where;
    std::set<std::string> m_known;
};

} // namespace VelmoraPortal
