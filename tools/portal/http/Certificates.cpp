#include "portal/http/Certificates.h"

#include <memory>
#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace VelmoraPortal {
namespace {

template <auto Free> struct Freer {
    template <typename T> void operator()(T *object) const { Free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Freer<BIO_free_all>>;

void check(bool good, const char *what)
{
    if (!good)
        throw std::runtime_error(std::string("Cannot make the portal's certificates: ") + what);
}

Key makeKey()
{
    Key key(EVP_EC_gen("P-256"));
    check(key != nullptr, "key generation failed");
    return key;
}

void addExtension(X509 *certificate, X509 *issuer, int nid, const char *value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value);
}

Certificate makeCertificate(EVP_PKEY *key, const char *commonName)
{
    Certificate certificate(X509_new());
    check(certificate != nullptr, "out of memory");
    // Serial numbers must differ between runs: clients may cache by issuer and serial.
    unsigned char serial[8];
    check(RAND_bytes(serial, sizeof serial) == 1, "no random numbers");
    std::uint64_t number = 0;
    for (const unsigned char byte : serial)
        number = number << 8 | byte;
    check(X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
              ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), number >> 1) == 1 &&
              X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600) != nullptr &&
              X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 7 * 24 * 3600) != nullptr &&
              X509_set_pubkey(certificate.get(), key) == 1,
          "fields");
    X509_NAME *name = X509_get_subject_name(certificate.get());
    const auto *text = reinterpret_cast<const unsigned char *>(commonName);
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "name");
    return certificate;
}

std::string read(const Memory &memory)
{
    char *data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string pem(X509 *certificate)
{
    const Memory memory(BIO_new(BIO_s_mem()));
    check(memory && PEM_write_bio_X509(memory.get(), certificate) == 1, "PEM");
    return read(memory);
}

std::string pem(EVP_PKEY *key)
{
    const Memory memory(BIO_new(BIO_s_mem()));
    check(memory && PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1, "PEM");
    return read(memory);
}

} // namespace

Certificates makeCertificates()
{
    const Key caKey = makeKey();
    const Certificate ca = makeCertificate(caKey.get(), "Velmora local portal authority");
    X509_set_issuer_name(ca.get(), X509_get_subject_name(ca.get()));
    addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash");
    check(X509_sign(ca.get(), caKey.get(), EVP_sha256()) > 0, "signature");

    const Key key = makeKey();
    const Certificate server = makeCertificate(key.get(), "localhost");
    X509_set_issuer_name(server.get(), X509_get_subject_name(ca.get()));
    addExtension(server.get(), ca.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(server.get(), ca.get(), NID_key_usage, "critical,digitalSignature");
    addExtension(server.get(), ca.get(), NID_ext_key_usage, "serverAuth");
    addExtension(server.get(), ca.get(), NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1");
    addExtension(server.get(), ca.get(), NID_authority_key_identifier, "keyid");
    check(X509_sign(server.get(), caKey.get(), EVP_sha256()) > 0, "signature");

    return {pem(ca.get()), pem(server.get()), pem(key.get())};
}

} // namespace VelmoraPortal
