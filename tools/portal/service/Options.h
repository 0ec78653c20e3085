#pragma once

#include "portal/storage/StorageOptions.h"

#include <functional>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// A user that every portal has from its start.
struct SeededUser {
    std::string email;
    std::string password;
    std::string mfaCode; ///< empty: the user signs in without one
};
const std::vector<SeededUser> &seededUsers();

struct Options {
    std::uint16_t port = 0;                       ///< 0: any free port
    std::string directory;                        ///< private directory; empty: a temporary one, removed at the end
    std::chrono::milliseconds jobDuration{20000}; ///< from submission to finish
    std::chrono::seconds tokenLifetime{3600};     ///< of an id token
    StorageOptions storage;
    bool requireInputs = false; ///< a job fails when an input that its submission names was not uploaded
    std::function<void(const std::string &line)> log; ///< one line per request, without bodies or tokens; called on
                                                      ///< the portal's thread and must not call the portal
};

} // namespace VelmoraPortal
