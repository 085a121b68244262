#include "zelvek/certificates/openssl.h"

#include <openssl/pem.h>

#include <array>

#include "zelvek/base/error.h"

namespace zelvek::openssl {
namespace {

Bio Memory(const BIO_METHOD* kind) {
    Bio bio(BIO_new(kind));
    Must(bio != nullptr);
    return bio;
}

std::string Text(const Bio& bio) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (int count = BIO_read(bio.get(), buffer.data(), buffer.size()); count > 0;
         count = BIO_read(bio.get(), buffer.data(), buffer.size())) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace

std::string Reason() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason != nullptr ? reason : "unknown reason";
}

void Must(bool done) {
    if (!done) throw Error(Code::kIo, "OpenSSL failed: " + Reason());
}

std::string Pem(const Certificate& certificate) {
    const Bio bio = Memory(BIO_s_mem());
    Must(PEM_write_bio_X509(bio.get(), certificate.get()) == 1);
    return Text(bio);
}

std::string Pem(const Request& request) {
    const Bio bio = Memory(BIO_s_mem());
    Must(PEM_write_bio_X509_REQ(bio.get(), request.get()) == 1);
    return Text(bio);
}

std::string Pem(const Key& key) {
    const Bio bio = Memory(BIO_s_secmem());
    Must(PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
    return Text(bio);
}

namespace {

std::string NameText(const X509_NAME* name) {
    const Bio bio = Memory(BIO_s_mem());
    Must(X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) >= 0);
    return Text(bio);
}

}  // namespace

std::string Subject(const Certificate& certificate) {
    return NameText(X509_get_subject_name(certificate.get()));
}

std::string Issuer(const Certificate& certificate) {
    return NameText(X509_get_issuer_name(certificate.get()));
}

}  // namespace zelvek::openssl
