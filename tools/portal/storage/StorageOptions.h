#pragma once

#include <chrono>
#include <cstdint>

namespace VelmoraPortal {

/// How the storage hands out its addresses. Those handed out before a change stay valid.
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
};

} // namespace VelmoraPortal
