#pragma once

#include <string>
#include <vector>

#include "vek/date.h"

namespace zelvek {

/// When a certificate holds.
struct Lifetime {
    vek_date::DateTime from;
    vek_date::DateTime until;
};

/// A private key, its certificate, and the certificates of the issuers above that one, as PEM texts.
struct CertificateChain {
    std::string leaf;
    std::string others;              // each after the one that it issued; empty where there are none
    std::string key;                 // PKCS #8, not encrypted
    std::vector<std::string> names;  // the leaf's DNS names, lower case
    Lifetime lifetime;               // the leaf's

    /// Whether the leaf is valid for a name (lower case ASCII), itself or by a wildcard of one label. For
    /// "*.example.org" it has to hold just that.
    bool Covers(const std::string& name) const;
};

/// Finds the certificate that belongs to the key, and puts the others in issuing order. `certificates` holds
/// PEM blocks in any order, duplicates allowed; `key` is one PEM block, PKCS #1, SEC 1 or PKCS #8. Neither
/// dates nor trust are checked. Errors: Error of code kBadKey (not one readable key, or no certificate
/// belongs to it) or kBadChain (no certificate, too many, something else among them, or one that issued no
/// other).
CertificateChain SortChain(const std::string& certificates, const std::string& key);

/// What a certificate says of itself.
struct Leaf {
    std::string der;
    std::vector<std::string> names;  // DNS names, lower case
    Lifetime lifetime;
};

/// Of the first certificate of a PEM text. Errors: Error of code kBadChain.
Leaf ReadLeaf(const std::string& certificates);
Lifetime LifetimeOf(const std::string& certificates);

/// The name of the first certificate at its authority's renewal information (RFC 9773 section 4.1); empty
/// where it does not say who issued it. Errors: Error of code kBadChain.
std::string RenewalNameOf(const std::string& certificates);

/// What people want to know of a certificate.
struct Description {
    std::vector<std::string> names;  // DNS names, lower case
    std::string issuer;              // as "CN=Authority"; any text
    Lifetime lifetime;
    std::string key_kind;  // "rsa", "ec", or OpenSSL's name of another
    int key_size = 0;      // bits
};

/// The same of the first certificate.
Description Describe(const std::string& certificates);

}  // namespace zelvek
