#pragma once

#include <string>

namespace zelvek {

/// A key, the certificate that is its own, and the certificates above that one: PEM texts ready to be
/// written.
struct CertificateChain {
    std::string leaf;
    std::string others;  // each after the one that it issued; empty where there are none
    std::string key;     // PKCS #8, not encrypted
};

/// Sorts out which certificate is whose. `certificates` holds PEM blocks in any order, duplicates allowed;
/// `key` is one PEM block, PKCS #1, SEC 1 or PKCS #8. Nothing is said about dates and trust. Errors:
/// Error of code kBadKey (no single readable key, or none of the certificates is its own),
/// "badchain" (none or too many certificates, anything that is none, a certificate above no other of the
/// chain).
CertificateChain SortChain(const std::string& certificates, const std::string& key);

}  // namespace zelvek
