#include "acme/signing_key.h"

const vek_crypto::RsaPrivateKey& SigningKey::Of(const std::string& pem) {
    if (!key_ || pem != pem_) {
        key_.reset();
        key_ = vek_crypto::pem_private::Decode(pem);
        pem_ = pem;
    }
    return *key_;
}
