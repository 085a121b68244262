#include "vek/crypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "openssl_setup.h"
#include "vek/err.h"

namespace vek_crypto {
namespace {

template <auto kFree>
struct Freed {
    template <class T>
    void operator()(T* pointer) const {
        kFree(pointer);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<&EVP_PKEY_free>>;
using Bio = std::unique_ptr<BIO, Freed<&BIO_free_all>>;
using Digest = std::unique_ptr<EVP_MD_CTX, Freed<&EVP_MD_CTX_free>>;

// OpenSSL's reason alone: the data that it may add could show what it was working on.
[[noreturn]] void Fail(const std::string& code) {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    const std::string text = reason != nullptr ? reason : "unknown reason";
    ERR_clear_error();
    throw vek_err::Error("crypto", code, text);
}

int RefusePassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*unused*/) { return -1; }

}  // namespace

struct RsaPrivateKey::Impl {
    Key key;
};

RsaPrivateKey::RsaPrivateKey(unsigned long bits) : impl_(std::make_unique<Impl>()) {
    vek_openssl::KeepUntilExit();
    impl_->key.reset(EVP_RSA_gen(static_cast<std::size_t>(bits)));
    if (!impl_->key) Fail("generate");
}

RsaPrivateKey::RsaPrivateKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
RsaPrivateKey::~RsaPrivateKey() = default;
RsaPrivateKey::RsaPrivateKey(RsaPrivateKey&&) noexcept = default;
RsaPrivateKey& RsaPrivateKey::operator=(RsaPrivateKey&&) noexcept = default;

namespace pem_private {

std::string Encode(const RsaPrivateKey& key) {
    const Bio out(BIO_new(BIO_s_mem()));
    if (!out || PEM_write_bio_PKCS8PrivateKey(out.get(), key.impl().key.get(), nullptr, nullptr, 0, nullptr,
                                              nullptr) != 1) {
        Fail("encode");
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

RsaPrivateKey Decode(const std::string& pem) {
    vek_openssl::KeepUntilExit();
    const Bio in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    auto impl = std::make_unique<RsaPrivateKey::Impl>();
    if (in) impl->key.reset(PEM_read_bio_PrivateKey(in.get(), nullptr, &RefusePassword, nullptr));
    if (!impl->key) Fail("decode");
    if (EVP_PKEY_is_a(impl->key.get(), "RSA") != 1) throw vek_err::Error("crypto", "decode", "no RSA key");
    return RsaPrivateKey(std::move(impl));
}

}  // namespace pem_private

namespace sign {

std::string Calculate(const RsaPrivateKey& key, const std::string& data) {
    const Digest digest(EVP_MD_CTX_new());
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    std::size_t size = 0;
    // An RSA key's default padding is the one of PKCS #1 v1.5.
    if (!digest ||
        EVP_DigestSignInit(digest.get(), nullptr, EVP_sha256(), nullptr, key.impl().key.get()) != 1 ||
        EVP_DigestSign(digest.get(), nullptr, &size, bytes, data.size()) != 1) {
        Fail("sign");
    }
    std::string signature(size, '\0');
    auto* place = reinterpret_cast<unsigned char*>(signature.data());
    if (EVP_DigestSign(digest.get(), place, &size, bytes, data.size()) != 1) Fail("sign");
    signature.resize(size);
    return signature;
}

}  // namespace sign
}  // namespace vek_crypto
