#pragma once

#include <string>

#include "zelvek/certificates/openssl.h"

namespace parts {

enum class KeyKind { kRsa, kEc };

/// A certificate with its key: an authority's or a server's.
struct Identity {
    zelvek::openssl::Key key;
    zelvek::openssl::Certificate certificate;

    std::string KeyPem() const { return zelvek::openssl::Pem(key); }
    std::string Pem() const { return zelvek::openssl::Pem(certificate); }
};

enum class Role { kAuthority, kServer };

/// Without an issuer the certificate is self-signed.
Identity Issue(const std::string& name, Role role, KeyKind kind, const Identity* issuer);

/// Another certificate of the same name and key, by another issuer, as cross-signed authorities have.
zelvek::openssl::Certificate CrossSign(const Identity& authority, const Identity& issuer);

/// Root, intermediate and leaf.
struct Hierarchy {
    explicit Hierarchy(KeyKind kind = KeyKind::kEc, const std::string& name = "shop.example");

    Identity root;
    Identity intermediate;
    Identity leaf;
};

}  // namespace parts
