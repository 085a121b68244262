#pragma once

#include <optional>
#include <string>

#include "vek/crypto.h"

/// The account's key, decoded. Decoding it, and what a key's first signature prepares in it, cost as much CPU
/// as two signatures more; so a run keeps it from one signed request to the next, and not beyond its end.
class SigningKey {
public:
    /// The key of this PEM text, until the next call. It is decoded where the text is another one than the
    /// last: a run may go over to another account. Errors: those of vek_crypto::pem_private::Decode; nothing
    /// is kept then.
    const vek_crypto::RsaPrivateKey& Of(const std::string& pem);

private:
    std::string pem_;
    std::optional<vek_crypto::RsaPrivateKey> key_;  // of `pem_`
};
