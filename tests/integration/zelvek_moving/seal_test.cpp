// Encrypted streams: what comes out is what went in, or nothing does.
#include "zelvek/moving/seal.h"

#include <gmock/gmock.h>

#include "unit/zelvek_parts/support.h"

namespace {

using parts::FailureOf;
using testing::HasSubstr;
using zelvek::moving::Secret;
using zelvek::moving::Source;

constexpr std::size_t kHeader = 49;
constexpr std::size_t kSealedChunk = 65536 + 16;

const Secret kKey{Secret::Kind::kKey, std::string(32, 'k')};

std::string Sealed(const std::string& plain, const Secret& secret = kKey) {
    std::string sealed;
    zelvek::moving::Sealer sealer([&sealed](std::string_view piece) { sealed += piece; }, secret);
    for (std::size_t at = 0; at < plain.size(); at += 10000) sealer.Take(plain.substr(at, 10000));
    sealer.Finish();
    return sealed;
}

std::string Unsealed(std::string sealed, const Secret& secret = kKey) {
    const Source source = zelvek::moving::Unseal([&sealed] { return std::exchange(sealed, ""); }, secret);
    std::string plain;
    for (std::string piece = source(); !piece.empty(); piece = source()) plain += piece;
    return plain;
}

std::string Plain(std::size_t size) {
    std::string plain;
    for (std::size_t i = 0; i < size; ++i) plain += static_cast<char>(i * 7 % 251);
    return plain;
}

std::string TypeOfUnsealing(const std::string& sealed) {
    return parts::TypeOf([&] { Unsealed(sealed); });
}

// Behaviours of: Moving to another machine

// Behaviour: What was encrypted comes back as it was, whatever its length, and looks different each time
TEST(Seal, GivesBackWhatWentIn) {
    for (const std::size_t size : {0UL, 1UL, 65535UL, 65536UL, 65537UL, 131072UL, 200000UL}) {
        EXPECT_EQ(Unsealed(Sealed(Plain(size))), Plain(size)) << size;
    }
    EXPECT_NE(Sealed("text"), Sealed("text"));
    EXPECT_EQ(Sealed("a telling text").find("telling"), std::string::npos);
}

// Behaviour: A passphrase or a key opens what was encrypted with it, and nothing else does
TEST(Seal, IsOpenedByItsSecretAlone) {
    const Secret passphrase{Secret::Kind::kPassphrase, "correct horse"};
    const std::string sealed = Sealed("content", passphrase);
    EXPECT_EQ(Unsealed(sealed, passphrase), "content");
    const Secret other{Secret::Kind::kPassphrase, "correct horses"};
    EXPECT_THAT(FailureOf([&] { Unsealed(sealed, other); }).text, HasSubstr("this is not its passphrase"));
    EXPECT_THAT(FailureOf([&] { Unsealed(sealed); }).text, HasSubstr("encrypted with a passphrase"));
    const Secret other_key{Secret::Kind::kKey, std::string(32, 'l')};
    EXPECT_THAT(FailureOf([&] { Unsealed(Sealed("content"), other_key); }).text, HasSubstr("is not its"));
}

// Behaviour: Of an encrypted backup no byte can be changed, no part cut off, exchanged or added
TEST(Seal, NothingInItCanBeChanged) {
    const std::string sealed = Sealed(Plain(150000));
    for (std::size_t at = 0; at < sealed.size(); at += at < 100 ? 1 : 4999) {
        std::string changed = sealed;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        std::string rest = changed;
        Source source = [&rest] { return std::exchange(rest, ""); };
        if (zelvek::moving::IsSealed(source)) {
            EXPECT_EQ(TypeOfUnsealing(changed), "value") << at;
        } else {
            EXPECT_LT(at, 16U);
        }
    }
    for (std::size_t size = 0; size < sealed.size(); size += size < 100 ? 1 : 4999)
        EXPECT_EQ(TypeOfUnsealing(sealed.substr(0, size)), "value") << size;
    const std::string header = sealed.substr(0, kHeader);
    const std::string first = sealed.substr(kHeader, kSealedChunk);
    const std::string second = sealed.substr(kHeader + kSealedChunk, kSealedChunk);
    const std::string last = sealed.substr(kHeader + 2 * kSealedChunk);
    EXPECT_EQ(Unsealed(header + first + second + last), Plain(150000));
    EXPECT_EQ(TypeOfUnsealing(header + second + first + last), "value");
    EXPECT_EQ(TypeOfUnsealing(header + first + last), "value");
    EXPECT_EQ(TypeOfUnsealing(header + first + second), "value") << "cut where a chunk ends";
    EXPECT_EQ(TypeOfUnsealing(header + last), "value");
    EXPECT_EQ(TypeOfUnsealing(sealed + "x"), "value");
    EXPECT_EQ(TypeOfUnsealing(sealed + last), "value");
}

// Behaviour: Secrets are taken from files that their owner alone can read, and a file without one is refused
TEST(Seal, SecretsAreReadFromPrivateFiles) {
    const parts::TempFolder folder;
    const auto file = folder.path() / "secret";
    const auto put = [&](const std::string& content, int mode = 0600) {
        parts::Put(file, content);
        std::filesystem::permissions(file, static_cast<std::filesystem::perms>(mode));
    };
    const auto refusal = [&](const auto& read) { return FailureOf([&] { read(file); }).text; };
    put("secret word\r\nsecond line\n");
    EXPECT_EQ(zelvek::moving::ReadPassphrase(file).bytes, "secret word");
    EXPECT_THAT(refusal(zelvek::moving::ReadKey), HasSubstr("is no key"));
    put("\nword\n");
    EXPECT_THAT(refusal(zelvek::moving::ReadPassphrase), HasSubstr("has no passphrase"));
    put("word", 0640);
    EXPECT_THAT(refusal(zelvek::moving::ReadPassphrase), HasSubstr("chmod 600"));
    put(std::string(63, 'a'));
    EXPECT_THAT(refusal(zelvek::moving::ReadKey), HasSubstr("is no key"));
    EXPECT_NE(parts::TypeOf([&] { zelvek::moving::MakeKey(file); }), "none") << "something is there";
    std::filesystem::remove(file);
    zelvek::moving::MakeKey(file);
    EXPECT_EQ(parts::Mode(file), 0600U);
    EXPECT_EQ(zelvek::moving::ReadKey(file).bytes.size(), 32U);
}

}  // namespace
