// Account keys as a record may hold them: read or refused by the framework's own error, which shows nothing
// of them.
#include "support/target.h"
#include "vek/crypto.h"
#include "vek/err.h"

namespace {

const std::string& Key() {
    static const std::string pem = vek_crypto::pem_private::Encode(vek_crypto::RsaPrivateKey(512));
    return pem;
}

void HoldText(const std::string& text) {
    try {
        const auto key = vek_crypto::pem_private::Decode(text);
        const std::string pem = vek_crypto::pem_private::Encode(key);
        fuzz::HoldEqual(vek_crypto::pem_private::Encode(vek_crypto::pem_private::Decode(pem)), pem,
                        "a key is written as it is");
        fuzz::Hold(!vek_crypto::sign::Calculate(key, "data").empty(), "a key that signs gives a signature");
    } catch (const vek_err::Error& error) {
        const std::string type = error.type();
        fuzz::Hold(type == "decode" || type == "sign",
                   "what is no key is refused, at the latest when it signs");
        const std::string secret = Key().substr(Key().size() / 2, 12);
        fuzz::Hold(std::string(error.what()).find(secret) == std::string::npos, "no error shows the key");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    std::string damaged = Key();
    const std::size_t at = input.ConsumeIntegralInRange<std::size_t>(0, damaged.size());
    const std::size_t most = input.ConsumeIntegralInRange<std::size_t>(0, 8);
    const std::string text = TakeRest(input);
    HoldText(text);
    HoldText(damaged.replace(at, most, text));
}
