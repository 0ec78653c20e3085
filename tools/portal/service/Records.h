#pragma once

#include "portal/json/Json.h"
#include "portal/service/State.h"
#include "portal/storage/Store.h"

namespace VelmoraPortal {

/// The records in the form that the service sends.
Json toJson(const User &user);
Json toJson(const Account &account, const User &user);
Json balanceJson(const Account &account, const std::vector<User> &users);
Json toJson(const Cluster &cluster, const Account &account);
Json toJson(const Job &job);
Json progressJson(const Job &job);
Json toJson(const Tag &tag);
Json toJson(const std::string &jobId, const StoredFile &file);

/// The whole state, without passwords and codes.
Json toJson(const State &state, const Store &store);

} // namespace VelmoraPortal
