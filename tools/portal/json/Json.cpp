#include "portal/json/Json.h"

#include <map>
#include <set>

namespace VelmoraPortal {

std::string dump(const Json &value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json parseObject(const std::string &text)
{
    if (text.empty())
        throw Refusal(400, "The body is empty, but must be a JSON object");
    std::map<int, std::set<std::string>> keys; // of the open objects, by their depth
    const auto note = [&keys](int depth, Json::parse_event_t event, const Json &parsed) {
        if (event == Json::parse_event_t::object_start)
            keys[depth + 1].clear();
        if (event == Json::parse_event_t::key && !keys[depth].insert(parsed.get<std::string>()).second)
            throw Refusal(400, "The body holds " + dump(parsed) + " twice");
        return true;
    };
    const Json value = Json::parse(text, note, false);
    if (value.is_discarded())
        throw Refusal(400, "The body is not valid JSON");
    if (!value.is_object())
        throw Refusal(400, "The body must be a JSON object");
    return value;
}

HttpResponse messageResponse(int status, const std::string &message)
{
    return {status, "application/json", dump({{"message", message}}), {}, nullptr};
}

} // namespace VelmoraPortal
