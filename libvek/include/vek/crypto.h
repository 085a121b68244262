#pragma once

#include <memory>
#include <string>

/// RSA keys and signatures. Errors: vek_err::Error("crypto", code, reason); no text of an error holds key
/// material.
namespace vek_crypto {

class RsaPrivateKey {
public:
    /// Generates a key; code "generate" on failure. 4096 bits take from a tenth of a second to several
    /// seconds.
    explicit RsaPrivateKey(unsigned long bits);
    ~RsaPrivateKey();
    RsaPrivateKey(RsaPrivateKey&&) noexcept;
    RsaPrivateKey& operator=(RsaPrivateKey&&) noexcept;

    struct Impl;
    explicit RsaPrivateKey(std::unique_ptr<Impl> impl);
    const Impl& impl() const { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

namespace pem_private {
/// PKCS #8 PEM text, not encrypted.
std::string Encode(const RsaPrivateKey& key);

/// Reads a PKCS #1 or PKCS #8 PEM text; code "decode" for anything else. An encrypted key is refused;
/// nobody is asked for its pass phrase.
RsaPrivateKey Decode(const std::string& pem);
}  // namespace pem_private

namespace sign {
/// RSASSA-PKCS1-v1_5 with SHA-256 over `data`: the raw signature, as long as the modulus; code "sign" on
/// failure.
std::string Calculate(const RsaPrivateKey& key, const std::string& data);
}  // namespace sign

}  // namespace vek_crypto
