#include "zelvek/certificates/request.h"

#include <openssl/ec.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/openssl.h"

namespace zelvek {
namespace {

using Extension = std::unique_ptr<X509_EXTENSION, openssl::Deleter<X509_EXTENSION_free>>;
using GeneralName = std::unique_ptr<GENERAL_NAME, openssl::Deleter<GENERAL_NAME_free>>;
using GeneralNames = std::unique_ptr<GENERAL_NAMES, openssl::Deleter<GENERAL_NAMES_free>>;

constexpr std::size_t kLongestCommonName = 64;  // RFC 5280 appendix A, ub-common-name
constexpr unsigned kSmallestKey = 2048;
constexpr unsigned kLargestKey = 8192;

Error WrongValue(const std::string& text) { return Error(Code::kValue, text); }

std::vector<std::string> DnsNames(const std::vector<std::string>& names) {
    std::vector<std::string> result;
    std::set<std::string> seen;
    for (const std::string& name : names) {
        names::CheckDomain(name, true);
        std::string canonical = names::Canonical(name);
        // DNS knows such names, certificates do not (RFC 5280 section 4.2.1.6 with RFC 1034 section 3.5).
        if (canonical.find('_') != std::string::npos) {
            throw WrongValue("\"" + Printable(name) + "\" is no name for a certificate");
        }
        if (seen.insert(canonical).second) result.push_back(std::move(canonical));
    }
    if (result.empty()) throw WrongValue("a certificate needs a name");
    return result;
}

unsigned RsaBits(const std::string& text) {
    if (text.empty()) return kSmallestKey;
    unsigned bits = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, bits);
    if (error != std::errc() || stop != end || bits < kSmallestKey || bits > kLargestKey) {
        throw WrongValue("key_size \"" + Printable(text) + "\" is no number from 2048 to 8192");
    }
    return bits;
}

std::string Curve(const std::string& text) {
    if (text.empty()) return "P-256";
    if (text == "P-256" || text == "P-384" || text == "P-521") return text;
    throw WrongValue("key_curve \"" + Printable(text) + "\" is none of P-256, P-384, P-521");
}

openssl::Key MakeKey(const Parameters& parameters) {
    const std::string& type = parameters.Get("key_type");
    openssl::Key key;
    if (type.empty() || type == "rsa") {
        key.reset(
            EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{RsaBits(parameters.Get("key_size"))}));
    } else if (type == "ec") {
        key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", Curve(parameters.Get("key_curve")).c_str()));
    } else {
        throw WrongValue("key_type \"" + Printable(type) + "\" is neither rsa nor ec");
    }
    openssl::Must(key != nullptr);
    return key;
}

bool IsCountry(const std::string& value) {
    return value.size() == 2 && std::all_of(value.begin(), value.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
           });
}

/// Adds one field of the subject. OpenSSL's table, which follows RFC 5280, limits its length and characters.
void AddField(X509_NAME* subject, int field, const std::string& parameter, const std::string& value) {
    if (value.empty()) return;
    const bool controls = Printable(value) != value;
    if (controls || X509_NAME_add_entry_by_NID(subject, field, MBSTRING_UTF8,
                                               reinterpret_cast<const unsigned char*>(value.data()),
                                               static_cast<int>(value.size()), -1, 0) != 1) {
        const std::string reason = controls ? "control characters, or too long" : openssl::Reason();
        throw WrongValue(parameter + " \"" + Printable(value) + "\" cannot stand in a request: " + reason);
    }
}

void SetSubject(X509_REQ* request, const std::string& first_name, const Parameters& parameters) {
    X509_NAME* subject = X509_REQ_get_subject_name(request);
    const std::string& country = parameters.Get("country");
    if (!country.empty() && !IsCountry(country)) {
        throw WrongValue("country \"" + Printable(country) + "\" is no code of two letters");
    }
    std::string code = country;
    std::transform(code.begin(), code.end(), code.begin(),
                   [](char c) { return c >= 'a' ? char(c - 'a' + 'A') : c; });
    AddField(subject, NID_countryName, "country", code);
    AddField(subject, NID_stateOrProvinceName, "state", parameters.Get("state"));
    AddField(subject, NID_localityName, "locality", parameters.Get("locality"));
    AddField(subject, NID_organizationName, "organization", parameters.Get("organization"));
    AddField(subject, NID_organizationalUnitName, "unit", parameters.Get("unit"));
    if (first_name.size() <= kLongestCommonName) AddField(subject, NID_commonName, "name", first_name);
    AddField(subject, NID_pkcs9_emailAddress, "email", parameters.Get("email"));
}

/// Made of objects, not of OpenSSL's configuration text, in which one name could stand for several entries.
void AddAlternativeNames(X509_REQ* request, const std::vector<std::string>& names) {
    const GeneralNames list(GENERAL_NAMES_new());
    openssl::Must(list != nullptr);
    for (const std::string& name : names) {
        GeneralName entry(GENERAL_NAME_new());
        ASN1_IA5STRING* text = ASN1_IA5STRING_new();
        openssl::Must(entry != nullptr && text != nullptr);
        GENERAL_NAME_set0_value(entry.get(), GEN_DNS, text);
        openssl::Must(ASN1_STRING_set(text, name.data(), static_cast<int>(name.size())) == 1);
        openssl::Must(sk_GENERAL_NAME_push(list.get(), entry.get()) > 0);
        (void)entry.release();  // belongs to the list now
    }
    const Extension extension(X509V3_EXT_i2d(NID_subject_alt_name, 0, list.get()));
    openssl::Must(extension != nullptr);
    STACK_OF(X509_EXTENSION)* extensions = sk_X509_EXTENSION_new_null();
    openssl::Must(extensions != nullptr);
    const bool added = sk_X509_EXTENSION_push(extensions, extension.get()) > 0 &&
                       X509_REQ_add_extensions(request, extensions) == 1;
    sk_X509_EXTENSION_free(extensions);
    openssl::Must(added);
}

}  // namespace

Csr MakeCsr(const std::vector<std::string>& names, const Parameters& parameters) {
    const std::vector<std::string> dns_names = DnsNames(names);
    const openssl::Request request(X509_REQ_new());
    openssl::Must(request != nullptr && X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) == 1);
    SetSubject(request.get(), dns_names.front(), parameters);
    AddAlternativeNames(request.get(), dns_names);

    const openssl::Key key = MakeKey(parameters);
    openssl::Must(X509_REQ_set_pubkey(request.get(), key.get()) == 1);
    openssl::Must(X509_REQ_sign(request.get(), key.get(), EVP_sha256()) > 0);
    return {openssl::Pem(request), openssl::Pem(key)};
}

}  // namespace zelvek
