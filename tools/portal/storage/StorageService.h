#pragma once

#include "portal/storage/Addresses.h"
#include "portal/storage/Store.h"

#include <functional>

namespace VelmoraPortal {

/// The paths under /storage/: uploads and pieces, for whoever holds a signed address. The sinks that it
/// makes refer to it. Belongs to the portal's thread.
class StorageService {
public:
    StorageService(Store &store, const Addresses &addresses, std::function<std::int64_t()> now);

    /// What takes the request's body and answers it; refusals come as an answer, too. The head's
    /// content length must be known.
    std::unique_ptr<BodySink> open(const HttpRequest &head);

    Store &store() { return m_store; }
    const Addresses &addresses() const { return m_addresses; }
    /// A file that was received in full.
    void keep(const std::string &jobId, const std::string &name, const std::string &path);

private:
    Store &m_store;
    const Addresses &m_addresses;
    std::function<std::int64_t()> m_now;
};

/// A refusal when an upload cannot have that name.
void checkFileName(const std::string &name);

bool isStoragePath(const std::string &target);

} // namespace VelmoraPortal
