#pragma once

#include "portal/json/Json.h"
#include "portal/storage/StorageOptions.h"
#include "portal/storage/Store.h"

#include <map>

namespace VelmoraPortal {

/// Makes the signed addresses of the storage and checks them. The secret is new in every run.
///
///   upload, raw    PUT or POST https://HOST/storage/raw/JOB/NAME?expires=E        X-Storage-Signature header
///   upload, form   POST https://HOST/storage/form/JOB?size=N                      fields "policy", "signature"
///   piece          GET https://HOST/storage/piece/JOB/FILE?from=A&size=B&expires=E  X-Storage-Signature header
///                  POST https://HOST/storage/piece/JOB/FILE                         all of that as form fields
class Addresses {
public:
    Addresses();

    /// The address object of an upload to that job.
    Json upload(const std::string &host, const std::string &jobId, const StorageOptions &options) const;
    /// The pieces of a file.
    Json pieces(const std::string &host, const std::string &jobId, const StoredFile &file,
                const StorageOptions &options) const;
    /// The size of all pieces of a file together.
    static std::int64_t downloadSize(const StoredFile &file, const StorageOptions &options);

    /// Each throws a refusal (403) when the signature is wrong or has expired.
    void checkRaw(const HttpRequest &head, const std::string &jobId) const;
    void checkForm(const std::string &jobId, const std::map<std::string, std::string> &fields) const;

    struct Piece {
        long long from = 0;
        long long size = 0; ///< negative: the whole file as it is stored
    };
    /// `members` of the query or of the form.
    Piece checkPiece(const std::string &jobId, const std::string &number,
                     const std::map<std::string, std::string> &members, const std::string &signature) const;

private:
    std::string sign(const std::string &text) const { return hmacHex(m_secret, text); }
    void check(const std::string &text, const std::string &signature, const std::string &expires) const;

    std::string m_secret;
};

extern const char *const signatureHeader;
extern const char *const sizeHeader;
extern const char *const fileHeader;
extern const char *const rawContentType;

} // namespace VelmoraPortal
