#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

/// OpenSSL's objects, freed by themselves, and its reasons as text.
namespace zelvek::openssl {

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
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;

/// The reason of the last failure; forgets all of them. It holds no key material.
std::string Reason();

/// For steps that fail by no fault of an input, as when memory runs out: Error of code kIo with the
/// reason.
void Must(bool done);

/// PEM texts; the key as PKCS #8, not encrypted.
std::string Pem(const Certificate& certificate);
std::string Pem(const Request& request);
std::string Pem(const Key& key);

/// The subject for a person to read, as "CN=example.org".
std::string Subject(const Certificate& certificate);

}  // namespace zelvek::openssl
