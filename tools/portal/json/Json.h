#pragma once

#include "portal/http/Http.h"

#include <nlohmann/json.hpp>

namespace VelmoraPortal {

using Json = nlohmann::json;

/// Compact text; what is not UTF-8 in it is replaced.
std::string dump(const Json &value);

/// The object in a request's body. Throws a refusal when there is none.
Json parseObject(const std::string &text);

/// The answer of every refusal: {"message": …}.
HttpResponse messageResponse(int status, const std::string &message);

} // namespace VelmoraPortal
