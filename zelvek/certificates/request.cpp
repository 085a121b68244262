#include "zelvek/certificates/request.h"

#include <openssl/ec.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/request_keys.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/openssl.h"

namespace zelvek {
namespace {

using Extension = std::unique_ptr<X509_EXTENSION, openssl::Deleter<X509_EXTENSION_free>>;
using GeneralName = std::unique_ptr<GENERAL_NAME, openssl::Deleter<GENERAL_NAME_free>>;
using GeneralNames = std::unique_ptr<GENERAL_NAMES, openssl::Deleter<GENERAL_NAMES_free>>;

constexpr unsigned kFewestBits = 2048;
constexpr unsigned kMostBits = 8192;

/// `key` is one of kRequestKeys.
Error WrongValue(const std::string& key, const std::string& value) {
    const auto* const known = std::find_if(kRequestKeys.begin(), kRequestKeys.end(),
                                           [&](const RequestKey& one) { return one.key == key; });
    return Error(Code::kValue, "csr", key,
                 key + " \"" + Printable(value) + "\" cannot be taken: it is " + known->values);
}

std::vector<std::string> DnsNames(const std::vector<std::string>& names) {
    std::vector<std::string> result;
    std::set<std::string> seen;
    for (const std::string& name : names) {
        names::CheckDomain(name, true);
        std::string canonical = names::Canonical(name);
        // DNS knows such names, certificates do not (RFC 5280 section 4.2.1.6 with RFC 1034 section 3.5).
        if (canonical.find('_') != std::string::npos) {
            throw Error(Code::kValue, "domain", name,
                        "\"" + Printable(name) + "\" is no name for a certificate: it has an underscore");
        }
        if (seen.insert(canonical).second) result.push_back(std::move(canonical));
    }
    if (result.empty()) throw Error(Code::kValue, "a certificate needs a name");
    return result;
}

/// What kind of key a request is signed with.
struct KeyKind {
    unsigned rsa_bits;
    std::string curve;  // empty for an RSA key
};

unsigned RsaBits(const std::string& text) {
    if (text.empty()) return kFewestBits;
    unsigned bits = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, bits);
    if (error != std::errc() || stop != end || bits < kFewestBits || bits > kMostBits)
        throw WrongValue("key_size", text);
    return bits;
}

std::string Curve(const std::string& text) {
    if (text.empty()) return "P-256";
    if (text == "P-256" || text == "P-384" || text == "P-521") return text;
    throw WrongValue("key_curve", text);
}

/// The size of one kind and the curve of the other do not go with it: who gives them expects another key.
KeyKind ChosenKey(const Parameters& parameters) {
    const std::string& type = parameters.Get("key_type");
    const std::string& size = parameters.Get("key_size");
    const std::string& curve = parameters.Get("key_curve");
    if (type == "ec") {
        if (!size.empty()) throw WrongValue("key_size", size);
        return {0, Curve(curve)};
    }
    if (!type.empty() && type != "rsa") throw WrongValue("key_type", type);
    if (!curve.empty()) throw WrongValue("key_curve", curve);
    return {RsaBits(size), ""};
}

openssl::Key MakeKey(const KeyKind& kind) {
    openssl::Key key(kind.curve.empty()
                         ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{kind.rsa_bits})
                         : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", kind.curve.c_str()));
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
    const bool plain = IsPlain(value);
    if (plain && X509_NAME_add_entry_by_NID(subject, field, MBSTRING_UTF8,
                                            reinterpret_cast<const unsigned char*>(value.data()),
                                            static_cast<int>(value.size()), -1, 0) == 1) {
        return;
    }
    ERR_clear_error();
    throw WrongValue(parameter, value);
}

void SetSubject(X509_REQ* request, const std::string& first_name, const Parameters& parameters) {
    X509_NAME* subject = X509_REQ_get_subject_name(request);
    const std::string& country = parameters.Get("country");
    if (!country.empty() && !IsCountry(country)) throw WrongValue("country", country);
    std::string code = country;
    std::transform(code.begin(), code.end(), code.begin(),
                   [](char c) { return c >= 'a' ? char(c - 'a' + 'A') : c; });
    AddField(subject, NID_countryName, "country", code);
    AddField(subject, NID_stateOrProvinceName, "state", parameters.Get("state"));
    AddField(subject, NID_localityName, "locality", parameters.Get("locality"));
    AddField(subject, NID_organizationName, "organization", parameters.Get("organization"));
    AddField(subject, NID_organizationalUnitName, "unit", parameters.Get("unit"));
    if (first_name.size() <= openssl::kLongestCommonName)
        AddField(subject, NID_commonName, "name", first_name);
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

/// The request as it stands before it has a key.
openssl::Request RequestWithoutKey(const std::vector<std::string>& names, const Parameters& parameters) {
    const std::vector<std::string> dns_names = DnsNames(names);
    openssl::Request request(X509_REQ_new());
    openssl::Must(request != nullptr && X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) == 1);
    SetSubject(request.get(), dns_names.front(), parameters);
    AddAlternativeNames(request.get(), dns_names);
    return request;
}

}  // namespace

void CheckCsr(const std::vector<std::string>& names, const Parameters& parameters) {
    ChosenKey(parameters);
    RequestWithoutKey(names, parameters);
}

Csr MakeCsr(const std::vector<std::string>& names, const Parameters& parameters) {
    const KeyKind kind = ChosenKey(parameters);
    const openssl::Request request = RequestWithoutKey(names, parameters);
    const openssl::Key key = MakeKey(kind);
    openssl::Must(X509_REQ_set_pubkey(request.get(), key.get()) == 1);
    openssl::Must(X509_REQ_sign(request.get(), key.get(), EVP_sha256()) > 0);
    return {openssl::Pem(request), openssl::Pem(key)};
}

}  // namespace zelvek
