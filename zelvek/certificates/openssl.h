#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <memory>
#include <string>

/// OpenSSL's objects, freed by their owners, and its errors as text.
namespace zelvek::openssl {

/// Of a name's common name, in bytes (RFC 5280 appendix A, ub-common-name).
inline constexpr std::size_t kLongestCommonName = 64;

template <auto Free>
struct Deleter {
    template <class Object>
    void operator()(Object* object) const {
        Free(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Request = std::unique_ptr<X509_REQ, Deleter<X509_REQ_free>>;
using GeneralNames = std::unique_ptr<GENERAL_NAMES, Deleter<GENERAL_NAMES_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;

/// The reason of the last failure, which holds no key material. OpenSSL's list of failures is empty then.
std::string Reason();

/// Throws an Error of code kIo with the reason unless `done`. For steps that no input can make fail, but a
/// lack of memory can.
void Must(bool done);

/// PEM texts; the key as PKCS #8, not encrypted.
std::string Pem(const Certificate& certificate);
std::string Pem(const Request& request);
std::string Pem(const Key& key);

/// Subject and issuer for a person to read, as "CN=example.org".
std::string Subject(const Certificate& certificate);
std::string Issuer(const Certificate& certificate);

}  // namespace zelvek::openssl
