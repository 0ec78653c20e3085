#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace VelmoraPortal {

/// The form of the storage addresses. Addresses from before a change stay valid.
struct StorageOptions {
    enum class Upload {
        Form,    ///< form fields and the file in one multipart body
        RawPut,  ///< the file as the whole body, with PUT
        RawPost, ///< the same with POST
    };
    enum class Download { Get, Post, Mixed }; ///< Mixed: every second piece with POST
    Upload upload = Upload::Form;
    Download download = Download::Get;
    std::int64_t pieceSize = 64 * 1024 * 1024; ///< plain bytes of every piece but the last
    bool shuffle = false;                      ///< lists the pieces out of order
    std::chrono::seconds addressLifetime{3600};
    int addressUses = 0;     ///< requests until an address expires; 0: any number
    int expiredStatus = 403; ///< of the refusal of an expired address
};

/// As the command line and the control paths name them.
inline const std::map<std::string, StorageOptions::Upload> uploadNames = {
    {"form", StorageOptions::Upload::Form},
    {"put", StorageOptions::Upload::RawPut},
    {"post", StorageOptions::Upload::RawPost},
};
inline const std::map<std::string, StorageOptions::Download> downloadNames = {
    {"get", StorageOptions::Download::Get},
    {"post", StorageOptions::Download::Post},
    {"mixed", StorageOptions::Download::Mixed},
};

/// What `expiredStatus` can be.
inline const std::set<int> expiredStatuses = {401, 403, 404, 410};

} // namespace VelmoraPortal
