// Certificates and key in any arrangement: sorted into the one chain, or refused for the right reason.
#include "zelvek/certificates/chain.h"

#include <array>

#include "support/plain.h"
#include "support/target.h"
#include "unit/zelvek_parts/authority.h"
#include "zelvek/base/error.h"

namespace {

/// What the inputs are put together from; made once, a key takes a while.
struct Parts {
    parts::Hierarchy own;
    parts::Hierarchy other{parts::KeyKind::kEc, "other.example"};
    std::string cross = zelvek::openssl::Pem(parts::CrossSign(own.root, other.root));
};

const Parts& Ready() {
    static const Parts ready;
    return ready;
}

enum Piece { kLeaf, kIntermediate, kRoot, kCross, kOtherRoot, kOtherLeaf, kOtherKey, kText, kEnd };

struct Arrangement {
    std::string text;
    std::array<bool, kEnd> holds{};
};

/// Pieces as the input's bytes say, with the input's own texts between them.
Arrangement Arrange(FuzzedDataProvider& input) {
    const Parts& parts = Ready();
    const std::array<std::string, kText> pieces{
        parts.own.leaf.Pem(),   parts.own.intermediate.Pem(), parts.own.root.Pem(),     parts.cross,
        parts.other.root.Pem(), parts.other.leaf.Pem(),       parts.other.leaf.KeyPem()};
    Arrangement arrangement;
    for (int i = 0; i < 12 && input.remaining_bytes() > 0; ++i) {
        const auto piece = static_cast<std::size_t>(input.ConsumeIntegral<std::uint8_t>()) % kEnd;
        const std::string text = piece == kText ? fuzz::TakeText(input) : pieces[piece];
        // only what is no white space counts as text
        if (piece != kText || !plain::Trim(text).empty()) arrangement.holds[piece] = true;
        arrangement.text += text;
    }
    return arrangement;
}

std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

/// What has to come of certificates that stand there whole.
std::string Outcome(const Arrangement& given) {
    const auto& holds = given.holds;
    if (holds[kText] || holds[kOtherKey]) return "badchain";
    const bool any = holds[kLeaf] || holds[kIntermediate] || holds[kRoot] || holds[kCross] ||
                     holds[kOtherRoot] || holds[kOtherLeaf];
    if (!any) return "badchain";
    if (!holds[kLeaf]) return "badkey";
    const bool gap = !holds[kIntermediate] && (holds[kRoot] || holds[kCross]);
    const bool foreign = holds[kOtherLeaf] || (holds[kOtherRoot] && !(holds[kIntermediate] && holds[kCross]));
    return gap || foreign ? "badchain" : "";
}

void HoldSorted(const zelvek::CertificateChain& chain, const Arrangement& given) {
    const Parts& parts = Ready();
    fuzz::HoldEqual(chain.leaf, parts.own.leaf.Pem(), "the leaf is the key's");
    fuzz::HoldEqual(chain.key, parts.own.leaf.KeyPem(), "the key is the one given");
    const auto& holds = given.holds;
    std::vector<std::string> above;
    for (const auto& [piece, pem] :
         std::array<std::pair<Piece, std::string>, 4>{{{kIntermediate, parts.own.intermediate.Pem()},
                                                       {kRoot, parts.own.root.Pem()},
                                                       {kCross, parts.cross},
                                                       {kOtherRoot, parts.other.root.Pem()}}}) {
        fuzz::Hold(Count(chain.others, pem) == (holds[piece] ? 1U : 0U),
                   "each certificate given stands there once");
        if (holds[piece]) above.push_back(pem);
    }
    if (holds[kIntermediate])
        fuzz::Hold(chain.others.starts_with(parts.own.intermediate.Pem()), "the leaf's issuer comes first");
    const auto again = zelvek::SortChain(chain.others + chain.leaf, chain.key);
    fuzz::Hold(again.leaf == chain.leaf && again.others.size() == chain.others.size(),
               "what is sorted can be sorted");
    fuzz::HoldEqual(std::to_string(chain.others.size()), std::to_string(plain::Join(above, "").size()),
                    "and nothing else");
}

void HoldArrangement(const Arrangement& given) {
    const std::string expected = Outcome(given);
    try {
        const auto chain = zelvek::SortChain(given.text, Ready().own.leaf.KeyPem());
        // texts of the input's own may be certificates after all
        if (!given.holds[kText]) fuzz::HoldEqual("", expected, "what does not belong together is refused");
        if (!given.holds[kText]) HoldSorted(chain, given);
    } catch (const zelvek::Error& error) {
        fuzz::HoldEqual(zelvek::Word(error.code()), expected, "the refusal has its reason");
    }
}

/// A key given with damage: refused as such, and nothing of it in the error.
void HoldKey(FuzzedDataProvider& input) {
    std::string key = Ready().own.leaf.KeyPem();
    const std::string secret = key.substr(key.size() / 2, 16);
    const std::size_t at = input.ConsumeIntegralInRange<std::size_t>(0, key.size());
    const std::size_t most = input.ConsumeIntegralInRange<std::size_t>(0, 8);
    key.replace(at, most, fuzz::TakeText(input));
    try {
        const auto chain = zelvek::SortChain(Ready().own.leaf.Pem(), key);
        fuzz::HoldEqual(chain.leaf, Ready().own.leaf.Pem(), "a key that passes is the certificate's");
        fuzz::HoldEqual(zelvek::SortChain(chain.leaf, chain.key).key, chain.key,
                        "a key is written as it is read");
    } catch (const zelvek::Error& error) {
        fuzz::HoldEqual(zelvek::Word(error.code()), "badkey",
                        "what is no key of the certificate's is refused as that");
        fuzz::Hold(std::string(error.what()).find(secret) == std::string::npos, "no error shows the key");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    HoldKey(input);
    HoldArrangement(Arrange(input));
}
