#include "zelvek/base/secret.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>

#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::secrets {

namespace {

constexpr std::size_t kBytes = 32;

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Hex(const unsigned char* bytes, std::size_t size) {
    return str::hex::Encode(std::string(reinterpret_cast<const char*>(bytes), size));
}

}  // namespace

std::string Fresh() {
    std::array<unsigned char, kBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw Error(Code::kInternal, "the system has given no random bytes");
    return Hex(bytes.data(), bytes.size());
}

std::string HashOf(const std::string& secret) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    if (EVP_Digest(secret.data(), secret.size(), hash.data(), &size, EVP_sha256(), nullptr) != 1)
        throw Error(Code::kInternal, "no SHA-256 to be had");
    return Hex(hash.data(), size);
}

std::string Mac(const std::string& key, const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac{};
    unsigned size = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), Bytes(text), text.size(), mac.data(),
             &size) == nullptr)
        throw Error(Code::kInternal, "no HMAC to be had");
    return Hex(mac.data(), size);
}

bool Same(const std::string& one, const std::string& other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace zelvek::secrets
