#include "zelvek/certificates/chain.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <vector>

#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/openssl.h"
#include "zelvek/certificates/pem.h"

namespace zelvek {
namespace {

using Certificates = std::vector<openssl::Certificate>;

// Real chains have up to five. Each certificate is tried against every other, so there is a limit.
constexpr std::size_t kMostCertificates = 50;

Error BadKey(const std::string& text) { return Error(Code::kBadKey, text); }
Error BadChain(const std::string& text) { return Error(Code::kBadChain, text); }

openssl::Key ReadKey(const std::string& pem) {
    const auto blocks = ReadPem(pem);
    if (!blocks || blocks->size() != 1) throw BadKey("the key is not exactly one unencrypted PEM block");
    const PemBlock& block = blocks->front();
    if (block.label != "PRIVATE KEY" && block.label != "RSA PRIVATE KEY" && block.label != "EC PRIVATE KEY") {
        throw BadKey("the key's PEM block is no unencrypted private key");
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.der.data());
    const unsigned char* const end = bytes + block.der.size();
    openssl::Key key(d2i_AutoPrivateKey(nullptr, &bytes, static_cast<long>(block.der.size())));
    if (!key || bytes != end) throw BadKey("the key cannot be read: " + openssl::Reason());
    return key;
}

openssl::Certificate ReadCertificate(const PemBlock& block) {
    if (block.label != "CERTIFICATE") throw BadChain("a block that is no certificate stands among them");
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.der.data());
    const unsigned char* const end = bytes + block.der.size();
    openssl::Certificate certificate(d2i_X509(nullptr, &bytes, static_cast<long>(block.der.size())));
    if (!certificate || bytes != end) throw BadChain("a certificate cannot be read: " + openssl::Reason());
    return certificate;
}

/// The certificates in the order given, each once.
Certificates ReadCertificates(const std::string& pem) {
    const auto blocks = ReadPem(pem);
    if (!blocks) throw BadChain("something that is no certificate stands among the certificates");
    if (blocks->empty()) throw BadChain("there is no certificate");
    if (blocks->size() > kMostCertificates) throw BadChain("there are too many certificates");
    Certificates certificates;
    for (auto block = blocks->begin(); block != blocks->end(); ++block) {
        const bool duplicate = std::any_of(
            blocks->begin(), block, [&](const PemBlock& earlier) { return earlier.der == block->der; });
        if (!duplicate) certificates.push_back(ReadCertificate(*block));
    }
    return certificates;
}

bool Issued(const openssl::Certificate& issuer, const openssl::Certificate& subject) {
    const bool issued = X509_check_issued(issuer.get(), subject.get()) == X509_V_OK &&
                        X509_verify(subject.get(), X509_get0_pubkey(issuer.get())) == 1;
    ERR_clear_error();
    return issued;
}

/// The leaf first, then its issuers, then theirs. A cross-signed authority has several certificates, which
/// all stay.
Certificates Order(Certificates rest, EVP_PKEY* key) {
    const auto own = std::find_if(rest.begin(), rest.end(), [&](const openssl::Certificate& certificate) {
        return X509_check_private_key(certificate.get(), key) == 1;
    });
    ERR_clear_error();
    if (own == rest.end()) throw BadKey("key and certificate do not belong together");
    Certificates chain;
    chain.push_back(std::move(*own));
    rest.erase(own);
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const auto issuers = std::stable_partition(
            rest.begin(), rest.end(),
            [&](const openssl::Certificate& other) { return !Issued(other, chain[i]); });
        std::move(issuers, rest.end(), std::back_inserter(chain));
        rest.erase(issuers, rest.end());
    }
    if (rest.empty()) return chain;
    throw BadChain("the certificate of " + Printable(openssl::Subject(rest.front())) +
                   " does not belong to the chain");
}

/// Browsers look at the subject alternative names alone (RFC 9110 section 4.3.4).
std::vector<std::string> DnsNames(const openssl::Certificate& certificate) {
    const openssl::GeneralNames list(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(certificate.get(), NID_subject_alt_name, nullptr, nullptr)));
    ERR_clear_error();
    std::vector<std::string> names;
    for (int i = 0; i < sk_GENERAL_NAME_num(list.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(list.get(), i);
        if (name->type != GEN_DNS) continue;
        const auto* text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.dNSName));
        names.push_back(str::Lower({text, static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName))}));
    }
    return names;
}

vek_date::DateTime Moment(const ASN1_TIME* time) {
    std::tm fields{};
    if (ASN1_TIME_to_tm(time, &fields) != 1) throw BadChain("a certificate has no readable dates");
    std::array<char, sizeof("YYYY-MM-DD HH:MM:SS")> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &fields);
    try {
        return vek_date::DateTime(text.data());
    } catch (const vek_err::Error&) {
        throw BadChain("a certificate has no readable dates");
    }
}

Lifetime ReadLifetime(const openssl::Certificate& certificate) {
    return {Moment(X509_get0_notBefore(certificate.get())), Moment(X509_get0_notAfter(certificate.get()))};
}

/// The number's bytes as the certificate has them: a first one of zero where the number would be negative
/// otherwise.
std::string SerialOf(const openssl::Certificate& certificate) {
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate.get());
    const auto* bytes = reinterpret_cast<const char*>(ASN1_STRING_get0_data(serial));
    std::string number(bytes, static_cast<std::size_t>(ASN1_STRING_length(serial)));
    if (number.empty() || (static_cast<unsigned char>(number.front()) & 0x80U) != 0)
        number.insert(0, 1, '\0');
    return number;
}

/// RFC 4648 section 5, without padding.
std::string Base64Url(const std::string& bytes) {
    std::string text = str::base64::Encode(bytes);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

}  // namespace

Leaf ReadLeaf(const std::string& certificates) {
    const Certificates read = ReadCertificates(certificates);
    return {ReadPem(certificates)->front().der, DnsNames(read.front()), ReadLifetime(read.front())};
}

Lifetime LifetimeOf(const std::string& certificates) {
    return ReadLifetime(ReadCertificates(certificates).front());
}

std::string RenewalNameOf(const std::string& certificates) {
    const openssl::Certificate certificate = std::move(ReadCertificates(certificates).front());
    const ASN1_OCTET_STRING* issuer = X509_get0_authority_key_id(certificate.get());
    ERR_clear_error();
    if (issuer == nullptr) return "";
    const auto* bytes = reinterpret_cast<const char*>(ASN1_STRING_get0_data(issuer));
    const std::string key(bytes, static_cast<std::size_t>(ASN1_STRING_length(issuer)));
    return Base64Url(key) + "." + Base64Url(SerialOf(certificate));
}

Description Describe(const std::string& certificates) {
    const openssl::Certificate leaf = std::move(ReadCertificates(certificates).front());
    const EVP_PKEY* key = X509_get0_pubkey(leaf.get());
    if (key == nullptr) throw BadChain("a certificate's key cannot be read: " + openssl::Reason());
    const char* name = OBJ_nid2sn(EVP_PKEY_get_base_id(key));
    const bool rsa = EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
    const bool ec = EVP_PKEY_get_base_id(key) == EVP_PKEY_EC;
    return {DnsNames(leaf), openssl::Issuer(leaf), ReadLifetime(leaf),
            rsa  ? "rsa"
            : ec ? "ec"
                 : name,
            EVP_PKEY_get_bits(key)};
}

bool CertificateChain::Covers(const std::string& name) const {
    const auto holds = [this](const std::string& wanted) {
        return std::find(names.begin(), names.end(), wanted) != names.end();
    };
    const std::size_t dot = name.find('.');
    return holds(name) || (dot != std::string::npos && holds("*" + name.substr(dot)));
}

CertificateChain SortChain(const std::string& certificates, const std::string& key) {
    const openssl::Key private_key = ReadKey(key);
    const Certificates ordered = Order(ReadCertificates(certificates), private_key.get());
    CertificateChain chain{openssl::Pem(ordered.front()), "", openssl::Pem(private_key),
                           DnsNames(ordered.front()), ReadLifetime(ordered.front())};
    for (std::size_t i = 1; i < ordered.size(); ++i) chain.others += openssl::Pem(ordered[i]);
    return chain;
}

}  // namespace zelvek
