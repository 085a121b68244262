#include "encoding/account_key.h"

#include <json/json.h>

#include <map>

#include "encoding/encoding.h"
#include "encoding/json_values.h"
#include "encoding/tool.h"
#include "vek/crypto.h"
#include "vek/str.h"

namespace {

constexpr unsigned long kKeyBits = 4096;
const std::string kModulusWord = "modulus";
const std::string kExponentWord = "publicExponent";

/// The dump's modulus: an indented hex dump with colons between the words "modulus" and "publicExponent".
std::string ModulusOf(const std::string& dump, std::size_t modulus_at, std::size_t exponent_at) {
    const std::map<std::string, std::string> layout{{" ", ""}, {":", ""}, {"\n", ""}};
    const std::size_t begin = modulus_at + kModulusWord.size();
    if (exponent_at < begin) return "";
    std::string hex = str::Replace(dump.substr(begin, exponent_at - begin), layout);
    // the dump shows one leading zero byte whenever the modulus's top bit is set; a second one would be the
    // number's own
    if (hex.starts_with("00")) hex.erase(0, 2);
    return GetEncodedHexString(hex);
}

/// The dump's public exponent. Its line is the last one with parentheses, "publicExponent: 65537 (0x10001)",
/// and the "0" of "0x" makes the count of digits even for the usual exponent.
std::string ExponentOf(const std::string& dump) {
    const std::size_t open = dump.rfind('(');
    const std::size_t close = dump.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) return "";
    return GetEncodedHexString(str::Replace(dump.substr(open + 1, close - open - 1), "x", ""));
}

}  // namespace

std::string GenerateAcmeKey() { return vek_crypto::pem_private::Encode(vek_crypto::RsaPrivateKey(kKeyBits)); }

std::string GetModulusHeader(const std::string& pem) {
    const std::string dump = RunFilter("openssl rsa -text -noout", pem, "ssl_generate");
    const std::size_t modulus_at = dump.find(kModulusWord);
    const std::size_t exponent_at = dump.rfind(kExponentWord);
    std::string n;
    std::string e;
    if (modulus_at != std::string::npos && exponent_at != std::string::npos) {
        n = ModulusOf(dump, modulus_at, exponent_at);
        e = ExponentOf(dump);
    }
    Json::Value header;
    header["alg"] = "RS256";
    header["jwk"]["kty"] = "RSA";
    header["jwk"]["e"] = e;
    header["jwk"]["n"] = n;
    return WriteCompact(header);
}

std::string GetThumbprint(const std::string& jwk_text) {
    std::string text = jwk_text;
    str::inpl::Replace(text, "\n", "");
    return GetUrlEncodedSha256(text);
}

std::string GetKeyAuthz(const std::string& token, const std::string& thumbprint) {
    return str::Append(token, thumbprint, ".");
}
