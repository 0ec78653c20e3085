#include "portal/json/Json.h"

namespace VelmoraPortal {

std::string dump(const Json &value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json parseObject(const std::string &text)
{
    if (text.empty())
        throw Refusal(400, "The body is empty, but must be a JSON object");
    Json value = Json::parse(text, nullptr, false);
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
