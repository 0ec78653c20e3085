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
///
/// E is the second of the expiry; with `addressUses` or another `expiredStatus` it is SECOND.NUMBER.USES.STATUS, where
/// NUMBER makes each address different.
class Addresses {
public:
    Addresses();

    /// The address object of an upload to that job.
    Json upload(const std::string &host, const std::string &jobId, const StorageOptions &options);
    /// The pieces of a file.
    Json pieces(const std::string &host, const std::string &jobId, const StoredFile &file,
                const StorageOptions &options);
    /// The size of all pieces of a file together.
    static std::int64_t downloadSize(const StoredFile &file, const StorageOptions &options);

    /// Each throws a refusal when the signature is wrong (403) or has expired (the status of its options), else it
    /// counts the use.
    void checkRaw(const HttpRequest &head, const std::string &jobId);
    void checkForm(const std::string &jobId, const std::map<std::string, std::string> &fields);

    struct Piece {
        long long from = 0;
        long long size = 0; ///< negative: the whole file as it is stored
    };
    /// `members` of the query or of the form.
    Piece checkPiece(const std::string &jobId, const std::string &number,
                     const std::map<std::string, std::string> &members, const std::string &signature);

private:
    std::string sign(const std::string &text) const { return hmacHex(m_secret, text); }
    std::string expiryOf(const StorageOptions &options);
    void check(const std::string &text, const std::string &signature, const std::string &expires);
    void use(const std::string &signature, const std::string &expires);

    std::string m_secret;
    long long m_limited = 0;                 ///< addresses with a number of uses or a status of their own
    std::map<std::string, long long> m_uses; ///< of those with a number of uses, by signature
};

extern const char *const signatureHeader;
extern const char *const sizeHeader;
extern const char *const fileHeader;
extern const char *const rawContentType;

} // namespace VelmoraPortal
