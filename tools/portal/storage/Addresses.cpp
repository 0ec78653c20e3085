#include "portal/storage/Addresses.h"

#include "portal/http/Text.h"

#include <algorithm>
#include <ctime>
#include <random>
#include <sstream>

namespace VelmoraPortal {
namespace {

constexpr long long maxPieces = 99999; // five digits in a piece's name

long long nowSeconds() { return static_cast<long long>(std::time(nullptr)); }

std::string member(const std::map<std::string, std::string> &members, const char *name)
{
    const auto found = members.find(name);
    return found == members.end() ? std::string() : found->second;
}

std::string rawText(const std::string &method, const std::string &jobId, const std::string &type,
                    const std::string &expires)
{
    return "raw\n" + method + '\n' + jobId + '\n' + type + '\n' + expires;
}

std::string formText(const std::string &policy) { return "form\n" + policy; }

std::string pieceText(const std::string &jobId, const std::string &number, const std::string &from,
                      const std::string &size, const std::string &expires)
{
    return "piece\n" + jobId + '\n' + number + '\n' + from + '\n' + size + '\n' + expires;
}

/// Plain bytes of every piece but the last.
long long pieceSize(const StoredFile &file, const StorageOptions &options)
{
    const long long least = (file.plainSize + maxPieces - 1) / maxPieces;
    return std::max<long long>({1, least, options.pieceSize});
}

long long pieceCount(const StoredFile &file, const StorageOptions &options)
{
    const long long size = pieceSize(file, options);
    return std::max<long long>(1, (file.plainSize + size - 1) / size);
}

std::string fiveDigits(long long number)
{
    const std::string digits = std::to_string(number);
    return std::string(5 - std::min<std::size_t>(5, digits.size()), '0') + digits;
}

} // namespace

const char *const signatureHeader = "X-Storage-Signature";
const char *const sizeHeader = "X-Storage-Size";
const char *const fileHeader = "X-Storage-File";
const char *const rawContentType = "application/octet-stream";

Addresses::Addresses()
    : m_secret(randomBytes(32))
{
}

std::string Addresses::expiryOf(const StorageOptions &options)
{
    const auto text = std::to_string(std::max<long long>(0, nowSeconds() + options.addressLifetime.count()));
    if (options.addressUses == 0 && options.expiredStatus == StorageOptions().expiredStatus)
        return text;
    return text + '.' + std::to_string(++m_limited) + '.' + std::to_string(options.addressUses) + '.' +
           std::to_string(options.expiredStatus);
}

Json Addresses::upload(const std::string &host, const std::string &jobId, const StorageOptions &options)
{
    const std::string expires = expiryOf(options);
    if (options.upload == StorageOptions::Upload::Form) {
        const std::string policy = base64(dump({{"jobId", jobId}, {"expires", expires}}));
        return {{"uri", "https://" + host + "/storage/form/" + encoded(jobId) + "?size=#fileSize#"},
                {"method", "POST"},
                {"headers", {{sizeHeader, "#fileSize#"}}},
                {"formFields", {{"policy", policy}, {"signature", sign(formText(policy))}}}};
    }
    const std::string method = options.upload == StorageOptions::Upload::RawPut ? "PUT" : "POST";
    return {{"uri", "https://" + host + "/storage/raw/" + encoded(jobId) + "/#urlEncodedFileName#?expires=" + expires},
            {"method", method},
            {"headers",
             {{"Content-Type", rawContentType},
              {fileHeader, "#fileName#"},
              {sizeHeader, "#fileSize#"},
              {signatureHeader, sign(rawText(method, jobId, rawContentType, expires))}}},
            {"formFields", Json::object()}};
}

Json Addresses::pieces(const std::string &host, const std::string &jobId, const StoredFile &file,
                       const StorageOptions &options)
{
    const std::string expires = expiryOf(options);
    const std::string number = std::to_string(file.number);
    const std::string uri = "https://" + host + "/storage/piece/" + encoded(jobId) + '/' + number;
    const long long count = pieceCount(file, options);
    std::vector<Json> list;
    for (long long i = 0; i < count; ++i) {
        const long long start = i * pieceSize(file, options);
        const std::string from = std::to_string(start);
        const std::string size = file.plainSize < 0
                                     ? std::string("all")
                                     : std::to_string(std::min(pieceSize(file, options), file.plainSize - start));
        const std::string signature = sign(pieceText(jobId, number, from, size, expires));
        const bool post = options.download == StorageOptions::Download::Post ||
                          (options.download == StorageOptions::Download::Mixed && i % 2 == 1);
        Json piece = {{"method", post ? "POST" : "GET"},
                      {"fileName", file.name + "._" + fiveDigits(i + 1) + '_' + fiveDigits(count)},
                      {"headers", Json::object()},
                      {"formFields", Json::object()}};
        if (post) {
            piece["uri"] = uri;
            piece["formFields"] = {{"from", from}, {"size", size}, {"expires", expires}, {"signature", signature}};
        } else {
            piece["uri"] = uri + "?from=" + from + "&size=" + size + "&expires=" + expires;
            piece["headers"] = {{signatureHeader, signature}};
        }
        list.push_back(std::move(piece));
    }
    if (options.shuffle) {
        static std::mt19937 random(20);
        std::shuffle(list.begin(), list.end(), random);
    }
    return list;
}

std::int64_t Addresses::downloadSize(const StoredFile &file, const StorageOptions &options)
{
    if (file.plainSize < 0)
        return file.size;
    const long long size = pieceSize(file, options);
    const long long full = pieceCount(file, options) - 1;
    return full * cipherSize(size) + cipherSize(file.plainSize - full * size);
}

void Addresses::check(const std::string &text, const std::string &signature, const std::string &expires)
{
    if (!sameSecret(sign(text), signature))
        throw Refusal(403, "The signature of the address is not valid");
    use(signature, expires);
}

void Addresses::use(const std::string &signature, const std::string &expires)
{
    std::istringstream terms(expires); // signed, so well-formed
    long long second = 0, number = 0, uses = 0;
    int status = StorageOptions().expiredStatus;
    char dot = 0;
    if (terms >> second >> dot)
        terms >> number >> dot >> uses >> dot >> status;
    if (second <= nowSeconds() || (uses > 0 && ++m_uses[signature] > uses))
        throw Refusal(status, "The address has expired");
}

void Addresses::checkRaw(const HttpRequest &head, const std::string &jobId)
{
    const std::string *type = findHeader(head.headers, "Content-Type");
    const std::string *signature = findHeader(head.headers, signatureHeader);
    const std::string expires = member(queryOf(head.target), "expires");
    check(rawText(head.method, jobId, type ? *type : "", expires), signature ? *signature : "", expires);
}

void Addresses::checkForm(const std::string &jobId, const std::map<std::string, std::string> &fields)
{
    const std::string policy = member(fields, "policy");
    const std::string signature = member(fields, "signature");
    if (fields.size() != 2 || policy.empty() || signature.empty())
        throw Refusal(400, "The form must hold the fields \"policy\" and \"signature\" in front of its file");
    if (!sameSecret(sign(formText(policy)), signature))
        throw Refusal(403, "The signature of the form is not valid");
    const Json terms = Json::parse(fromBase64(policy));
    if (terms.at("jobId") != jobId)
        throw Refusal(403, "The form is signed for another job");
    use(signature, terms.at("expires").get<std::string>());
}

Addresses::Piece Addresses::checkPiece(const std::string &jobId, const std::string &number,
                                       const std::map<std::string, std::string> &members, const std::string &signature)
{
    const std::string from = member(members, "from");
    const std::string size = member(members, "size");
    const std::string expires = member(members, "expires");
    check(pieceText(jobId, number, from, size, expires), signature, expires);
    return {numberOf(from), numberOf(size)};
}

} // namespace VelmoraPortal
