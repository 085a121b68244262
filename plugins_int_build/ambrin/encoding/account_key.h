#pragma once

#include <string>

/// The account key: RSA, kept as PEM text, known to the authority as a JSON Web Key (RFC 7517).

/// PEM text of a new 4096-bit RSA private key.
std::string GenerateAcmeKey();

/// The protected header's part that carries the public key: compact JSON text with final line feed,
/// {"alg":"RS256","jwk":{"e":...,"kty":"RSA","n":...}}, the numbers as base64url of their big-endian bytes. A
/// key dump without the expected words leaves "n" or "e" empty; the authority refuses such a header. Errors:
/// vek_err::Error("ambrin", "ssl_generate", output) when `openssl` cannot read the key.
std::string GetModulusHeader(const std::string& pem);

/// base64url SHA-256 thumbprint (RFC 7638) of a compact JWK text; line feeds in it do not count.
/// Errors: vek_err::Error("ambrin", "sha_error", output).
std::string GetThumbprint(const std::string& jwk_text);

/// The key authorization (RFC 8555 section 8.1): token "." thumbprint.
std::string GetKeyAuthz(const std::string& token, const std::string& thumbprint);
