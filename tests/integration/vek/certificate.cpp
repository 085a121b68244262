#include "certificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace vek_test {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Key MakeKey() { return {EVP_EC_gen("P-256"), &EVP_PKEY_free}; }

void AddExtension(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    if (extension == nullptr) throw std::runtime_error("test certificate: extension " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate MakeCertificate(const std::string& name, EVP_PKEY* key, int days) {
    static long serial = 1;
    constexpr long kDay = 86400;
    Certificate certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -10 * kDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), days * kDay);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    return certificate;
}

void Free(SSL_CTX* context) { SSL_CTX_free(context); }

}  // namespace

struct Authority::Root {
    Key key = MakeKey();
    Certificate certificate{nullptr, &X509_free};
};

Authority::Authority(const std::string& name) : root_(std::make_unique<Root>()) {
    root_->certificate = MakeCertificate(name, root_->key.get(), 10);
    X509* certificate = root_->certificate.get();
    X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
    AddExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    X509_sign(certificate, root_->key.get(), EVP_sha256());
}

Authority::~Authority() = default;

std::string Authority::Pem() const {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> out(BIO_new(BIO_s_mem()), &BIO_free_all);
    PEM_write_bio_X509(out.get(), root_->certificate.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

Authority::Context Authority::MakeContext(const Leaf& leaf) const {
    const Key key = MakeKey();
    const Certificate certificate = MakeCertificate("leaf", key.get(), leaf.days);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(root_->certificate.get()));
    AddExtension(certificate.get(), NID_subject_alt_name, leaf.names);
    X509_sign(certificate.get(), root_->key.get(), EVP_sha256());
    Context context(SSL_CTX_new(TLS_server_method()), &Free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    const unsigned char id[] = "vek";
    SSL_CTX_set_session_id_context(context.get(), id, sizeof(id));
    return context;
}

}  // namespace vek_test
