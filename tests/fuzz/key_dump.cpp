// Whatever `openssl` prints for an account key: a header with base64url numbers, and no secret in an error.
#include <algorithm>

#include "double/vek_double.h"
#include "encoding/account_key.h"
#include "encoding/json_values.h"
#include "support/plain.h"
#include "support/target.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

const std::string kTool = "openssl rsa -text -noout";
const std::string kSecretWord = "privateExponent";

bool IsBase64Url(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; });
}

std::string HeaderOf(const vek_double::ChildAnswer& answer) {
    vek_double::World world;
    world.AnswerChild(kTool, answer);
    const std::string header = GetModulusHeader("the key's PEM");
    fuzz::Hold(world.Lines() == std::vector<std::string>{"child: " + kTool, "input: the key's PEM"},
               "the key goes to the tool's input and nowhere else");
    return header;
}

Json::Value HoldHeader(const std::string& text) {
    const Json::Value header = ParseAny(text);
    fuzz::HoldEqual(WriteCompact(header), text, "the header is compact JSON with a final line feed");
    const Json::Value& jwk = header["jwk"];
    fuzz::Hold(header.size() == 2 && jwk.size() == 3 && header["alg"] == "RS256" && jwk["kty"] == "RSA",
               "the header has its members and no other");
    fuzz::Hold(IsBase64Url(jwk["n"].asString()) && IsBase64Url(jwk["e"].asString()),
               "the numbers are base64url");
    return jwk;
}

/// Any text, and any exit status: a header, or an error that ends before the secret numbers.
void HoldAnyDump(int status, const std::string& dump) {
    try {
        HoldHeader(HeaderOf({dump, status}));
        fuzz::Hold(status == 0, "a tool that fails is an error");
    } catch (const vek_err::Error& error) {
        fuzz::Hold(status != 0 && error.type() == "ssl_generate", "only a tool that fails is an error");
        const std::string shown = "ambrin: ssl_generate: " + dump.substr(0, dump.find(kSecretWord));
        fuzz::HoldEqual(error.what(), shown.c_str(), "the error ends where the secrets begin");
    }
}

/// The dump's own layout: lines of fifteen bytes, a leading zero where the top bit is set.
std::string Printed(const std::string& modulus) {
    const bool top_bit = (static_cast<unsigned char>(modulus[0]) & 0x80U) != 0;
    const std::string bytes = top_bit ? '\0' + modulus : modulus;
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 15 == 0) text += "\n    ";
        text += str::hex::Encode(bytes.substr(i, 1)) + (i + 1 < bytes.size() ? ":" : "");
    }
    return text;
}

/// A dump in the tool's own form: the numbers are the key's.
void HoldNumbers(const std::string& modulus, const std::string& secret) {
    if (modulus.empty() || modulus[0] == '\0') return;  // no number begins with a zero byte
    const std::string dump =
        "Private-Key: (2048 bit, 2 primes)\nmodulus:" + Printed(modulus) +
        "\npublicExponent: 65537 (0x10001)\nprivateExponent:" + (secret.empty() ? "" : Printed(secret)) +
        "\n";
    const Json::Value jwk = HoldHeader(HeaderOf({dump, 0}));
    fuzz::HoldEqual(jwk["n"].asString(), plain::Base64Url(modulus),
                    "the modulus is the key's, without a leading zero");
    fuzz::HoldEqual(jwk["e"].asString(), "AQAB", "the exponent is the key's");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    std::string dump = TakeRest(input);
    const int status = str::Int(TakeLine(dump));
    HoldAnyDump(status, dump);
    const std::size_t half = dump.size() / 2;
    HoldNumbers(dump.substr(half), dump.substr(0, half));
}
