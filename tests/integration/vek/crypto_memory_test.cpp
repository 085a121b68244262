// What the library gave is given back: keys hold secrets, and a run of days makes many.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "vek/crypto.h"

namespace {

thread_local int keys = 0;
thread_local int texts = 0;
thread_local int digests = 0;

template <class Value>
void Pass(const char* function, Value* value) {
    reinterpret_cast<void (*)(Value*)>(dlsym(RTLD_NEXT, function))(value);
}

}  // namespace

// The executable's symbols hide the library's.
extern "C" void EVP_PKEY_free(EVP_PKEY* key) {
    ++keys;
    Pass("EVP_PKEY_free", key);
}

extern "C" void BIO_free_all(BIO* text) {
    ++texts;
    Pass("BIO_free_all", text);
}

extern "C" void EVP_MD_CTX_free(EVP_MD_CTX* digest) {
    ++digests;
    Pass("EVP_MD_CTX_free", digest);
}

namespace {

// Behaviours of: Keys and signatures

// Behaviour: Keys and what they were read from are given back to the library
TEST(CryptoMemory, IsGivenBack) {
    {
        const vek_crypto::RsaPrivateKey key(2048);
        texts = 0;
        const std::string pem = vek_crypto::pem_private::Encode(key);
        EXPECT_GE(texts, 1);
        texts = 0;
        const auto again = vek_crypto::pem_private::Decode(pem);
        EXPECT_GE(texts, 1);
        digests = 0;
        vek_crypto::sign::Calculate(again, "data");
        EXPECT_GE(digests, 1);
        keys = 0;
    }
    EXPECT_GE(keys, 2);
}

}  // namespace
