#pragma once

#include "portal/storage/Addresses.h"
#include "portal/storage/Store.h"

#include <functional>

namespace VelmoraPortal {

/// The paths under /storage/: uploads and pieces, for every client with a signed address. It must outlive
/// its sinks. Belongs to the portal's thread.
class StorageService {
public:
    StorageService(Store &store, Addresses &addresses, std::function<std::int64_t()> now);

    /// Takes the request's body and answers it, refusals included. The head must have a Content-Length.
    std::unique_ptr<BodySink> open(const HttpRequest &head);

    Store &store() { return m_store; }
    Addresses &addresses() { return m_addresses; }
    /// Stores a file that was received in full.
    void keep(const std::string &jobId, const std::string &name, const std::string &path);

private:
    Store &m_store;
    Addresses &m_addresses;
    std::function<std::int64_t()> m_now;
};

/// Throws a refusal when an upload cannot have that name.
void checkFileName(const std::string &name);

bool isStoragePath(const std::string &target);

} // namespace VelmoraPortal
