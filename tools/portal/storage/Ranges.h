#pragma once

#include "portal/http/Http.h"

namespace VelmoraPortal {

/// Turns the answer of a GET, whose source is the whole object, into the one for the range that the request asks for:
/// 206, or 416 when the object is shorter. A range of another form or with an If-Range of another tag is ignored.
void answerRange(const HttpRequest &head, const std::string &etag, HttpResponse &response);

} // namespace VelmoraPortal
