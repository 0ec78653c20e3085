#pragma once

#include <string>

namespace VelmoraPortal {

/// A certificate authority made for one run and a server certificate that it signed, all as PEM.
///
/// The authority's private key is discarded once the server certificate is signed; it never leaves
/// `makeCertificates`. `keyPem` is the server's own key: never write it to a file.
struct Certificates {
    std::string caPem;   ///< what a client trusts
    std::string certPem; ///< the server's certificate, for 127.0.0.1, ::1 and localhost
    std::string keyPem;  ///< the server's private key (P-256, PKCS #8, not encrypted)
};

/// Makes a fresh authority and server certificate, valid for a week from an hour ago.
/// Throws std::runtime_error when OpenSSL fails.
Certificates makeCertificates();

} // namespace VelmoraPortal
