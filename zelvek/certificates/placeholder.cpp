#include "zelvek/certificates/placeholder.h"

#include <ctime>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/certificates/openssl.h"
#include "zelvek/certificates/pem.h"

namespace zelvek {

namespace {

constexpr const char* kMark = "zelvek placeholder, no certificate yet";
constexpr int kDays = 7;
constexpr int kSerialBytes = 8;

void AddText(X509_NAME* name, int field, const std::string& value) {
    openssl::Must(X509_NAME_add_entry_by_NID(name, field, MBSTRING_UTF8,
                                             reinterpret_cast<const unsigned char*>(value.data()),
                                             static_cast<int>(value.size()), -1, 0) == 1);
}

void SetNames(X509* certificate, const std::string& name) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    AddText(subject, NID_organizationName, kMark);
    if (name.size() <= openssl::kLongestCommonName) AddText(subject, NID_commonName, name);
    openssl::Must(X509_set_issuer_name(certificate, subject) == 1);
}

/// Others that are made for the same name are told from this one by it.
void SetSerial(X509* certificate) {
    std::string bytes = str::Random(kSerialBytes);
    bytes.front() = static_cast<char>((static_cast<unsigned char>(bytes.front()) & 0x3fU) | 0x40U);
    ASN1_INTEGER* serial = X509_get_serialNumber(certificate);
    openssl::Must(ASN1_STRING_set(serial, bytes.data(), static_cast<int>(bytes.size())) == 1);
}

void SetLifetime(X509* certificate) {
    std::time_t now = vek_date::DateTime().SecondsSince(vek_date::DateTime("1970-01-01 00:00:00"));
    openssl::Must(X509_time_adj_ex(X509_getm_notBefore(certificate), -1, 0, &now) != nullptr);
    openssl::Must(X509_time_adj_ex(X509_getm_notAfter(certificate), kDays, 0, &now) != nullptr);
}

}  // namespace

Placeholder MakePlaceholder(const std::string& name) {
    const openssl::Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    const openssl::Certificate certificate(X509_new());
    openssl::Must(key != nullptr && certificate != nullptr);
    openssl::Must(X509_set_version(certificate.get(), X509_VERSION_3) == 1);
    SetSerial(certificate.get());
    SetNames(certificate.get(), name);
    SetLifetime(certificate.get());
    openssl::Must(X509_set_pubkey(certificate.get(), key.get()) == 1);
    openssl::Must(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0);
    return {openssl::Pem(certificate), openssl::Pem(key)};
}

bool IsPlaceholder(const std::string& certificates) {
    const auto blocks = ReadPem(certificates);
    if (!blocks || blocks->empty()) return false;
    const std::string& der = blocks->front().der;
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
    const openssl::Certificate certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
    ERR_clear_error();
    if (!certificate) return false;
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    const int at = X509_NAME_get_index_by_NID(subject, NID_organizationName, -1);
    if (at < 0) return false;
    const ASN1_STRING* text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at));
    const auto* mark = reinterpret_cast<const char*>(ASN1_STRING_get0_data(text));
    return std::string(mark, static_cast<std::size_t>(ASN1_STRING_length(text))) == kMark;
}

}  // namespace zelvek
