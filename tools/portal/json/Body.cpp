#include "portal/json/Body.h"

namespace VelmoraPortal {
namespace {

std::string typeName(const Json &value)
{
    return value.is_number() ? "a number" : value.is_null() ? "null" : std::string("of type ") + value.type_name();
}

} // namespace

Body::Body(const Json &object, std::string where)
    : m_object(object)
    , m_where(std::move(where))
{
    if (!object.is_object())
        throw Refusal(400, m_where + " must be an object, but is " + typeName(object));
    if (!m_where.empty())
        m_where += '.';
}

void Body::refuse(const char *key, const std::string &problem) const
{
    throw Refusal(400, "\"" + m_where + key + "\" " + problem);
}

const Json &Body::member(const char *key, const char *type, bool (Json::*is)() const noexcept)
{
    m_known.insert(key);
    const auto found = m_object.find(key);
    if (found == m_object.end())
        refuse(key, "is missing");
    if (!((*found).*is)())
        refuse(key, std::string("must be ") + type + ", but is " + typeName(*found));
    return *found;
}

std::string Body::text(const char *key, bool mayBeEmpty, std::size_t longest)
{
    auto value = member(key, "a string", &Json::is_string).get<std::string>();
    if (value.empty() && !mayBeEmpty)
        refuse(key, "must not be empty");
    if (value.size() > longest)
        refuse(key, "is longer than " + std::to_string(longest) + " bytes");
    return value;
}

std::string Body::text(const char *key, const std::set<std::string> &allowed)
{
    auto value = text(key, true);
    if (allowed.count(value) != 0)
        return value;
    std::string choice;
    for (const std::string &word : allowed)
        choice += (choice.empty() ? "\"" : ", \"") + word + "\"";
    refuse(key, "must be " + std::string(allowed.size() > 1 ? "one of " : "") + choice);
}

long long Body::integer(const char *key, long long least, long long most)
{
    const Json &value = member(key, "a whole number", &Json::is_number_integer);
    const bool huge = value.is_number_unsigned() && value.get<std::uint64_t>() > static_cast<std::uint64_t>(most);
    const long long number = huge ? most : value.get<long long>();
    if (huge || number < least || number > most)
        refuse(key, "must be from " + std::to_string(least) + " to " + std::to_string(most));
    return number;
}

double Body::positive(const char *key)
{
    const auto number = member(key, "a number", &Json::is_number).get<double>();
    if (!(number > 0))
        refuse(key, "must be greater than 0");
    return number;
}

const Json &Body::array(const char *key) { return member(key, "an array", &Json::is_array); }

std::vector<std::string> Body::texts(const char *key)
{
    std::vector<std::string> list;
    for (const Json &element : array(key)) {
        if (!element.is_string())
            refuse(key, "must hold strings only");
        list.push_back(element.get<std::string>());
    }
    return list;
}

std::vector<int> Body::integers(const char *key, long long least, long long most)
{
    std::vector<int> list;
    for (const Json &element : array(key)) {
        if (!element.is_number_integer() || element < least || element > most)
            refuse(key, "must hold whole numbers from " + std::to_string(least) + " to " + std::to_string(most));
        list.push_back(element.get<int>());
    }
    return list;
}

void Body::end() const
{
    for (const auto &item : m_object.items())
        if (m_known.count(item.key()) == 0)
            refuse(item.key().c_str(), "is not a known key here");
}

std::string onlyText(const Json &object, const char *key)
{
    Body body(object);
    auto value = body.text(key);
    body.end();
    return value;
}

} // namespace VelmoraPortal
