#include "unit/zelvek_parts/authority.h"

#include <openssl/ec.h>
#include <openssl/rsa.h>

#include <stdexcept>

namespace parts {
namespace {

using zelvek::openssl::Certificate;
using zelvek::openssl::Key;

void Must(bool done) {
    if (!done) throw std::runtime_error("the test's authority failed: " + zelvek::openssl::Reason());
}

Key NewKey(KeyKind kind) {
    Key key(kind == KeyKind::kRsa ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                                  : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    Must(key != nullptr);
    return key;
}

void AddExtension(X509* certificate, int which, const char* value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, which, value);
    Must(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
    X509_EXTENSION_free(extension);
}

Certificate Sign(const std::string& name, Role role, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuer_key) {
    static long serial = 1;
    Certificate certificate(X509_new());
    X509* raw = certificate.get();
    Must(raw != nullptr && X509_set_version(raw, X509_VERSION_3) == 1);
    ASN1_INTEGER_set(X509_get_serialNumber(raw), serial++);
    X509_gmtime_adj(X509_getm_notBefore(raw), -3600);
    X509_gmtime_adj(X509_getm_notAfter(raw), 86400L * 90);
    X509_NAME_add_entry_by_NID(X509_get_subject_name(raw), NID_commonName, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(raw, X509_get_subject_name(issuer != nullptr ? issuer : raw));
    X509_set_pubkey(raw, key);
    AddExtension(raw, NID_basic_constraints, role == Role::kAuthority ? "critical,CA:TRUE" : "CA:FALSE");
    if (role == Role::kAuthority) AddExtension(raw, NID_key_usage, "critical,keyCertSign");
    if (role == Role::kServer) AddExtension(raw, NID_subject_alt_name, ("DNS:" + name).c_str());
    Must(X509_sign(raw, issuer_key, EVP_sha256()) > 0);
    return certificate;
}

}  // namespace

Identity Issue(const std::string& name, Role role, KeyKind kind, const Identity* issuer) {
    Key key = NewKey(kind);
    X509* above = issuer != nullptr ? issuer->certificate.get() : nullptr;
    EVP_PKEY* signer = issuer != nullptr ? issuer->key.get() : key.get();
    Certificate certificate = Sign(name, role, key.get(), above, signer);
    return {std::move(key), std::move(certificate)};
}

Certificate CrossSign(const Identity& authority, const Identity& issuer) {
    const std::string name = zelvek::openssl::Subject(authority.certificate).substr(3);  // "CN=..."
    return Sign(name, Role::kAuthority, authority.key.get(), issuer.certificate.get(), issuer.key.get());
}

Hierarchy::Hierarchy(KeyKind kind, const std::string& name)
    : root(Issue("Test Root", Role::kAuthority, kind, nullptr)),
      intermediate(Issue("Test Intermediate", Role::kAuthority, kind, &root)),
      leaf(Issue(name, Role::kServer, kind, &intermediate)) {}

}  // namespace parts
