#include "zelvek/moving/seal.h"

#include <fcntl.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"
#include "zelvek/certificates/openssl.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMagic = "zelvek sealed 1\n";
constexpr std::size_t kSalt = 32;
constexpr std::size_t kHeader = kMagic.size() + 1 + kSalt;
constexpr std::size_t kKey = 32;
constexpr std::size_t kNonce = 12;
constexpr std::size_t kChunk = kPiece;
constexpr std::size_t kProof = 16;
constexpr off_t kLargestSecret = 4096;

unsigned char* Bytes(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }
const unsigned char* Bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string RandomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    openssl::Must(RAND_bytes(Bytes(bytes), static_cast<int>(count)) == 1);
    return bytes;
}

std::string KeyOfPassphrase(const std::string& passphrase, const std::string& salt) {
    constexpr std::uint64_t kCost = 1UL << 17;
    constexpr std::uint64_t kBlock = 8;
    constexpr std::uint64_t kMemory = 256UL << 20;  // the most; 128 MiB are used
    std::string key(kKey, '\0');
    openssl::Must(EVP_PBE_scrypt(passphrase.data(), passphrase.size(), Bytes(std::string_view(salt)),
                                 salt.size(), kCost, kBlock, 1, kMemory, Bytes(key), key.size()) == 1);
    return key;
}

std::string KeyOfKey(std::string secret, std::string salt) {
    const std::unique_ptr<EVP_KDF, openssl::Deleter<EVP_KDF_free>> kind(
        EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const std::unique_ptr<EVP_KDF_CTX, openssl::Deleter<EVP_KDF_CTX_free>> derivation(
        EVP_KDF_CTX_new(kind.get()));
    std::string digest = "SHA256";
    std::string info(kMagic);
    const std::array parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest.data(), 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, secret.data(), secret.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt.data(), salt.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
        OSSL_PARAM_construct_end()};
    std::string key(kKey, '\0');
    openssl::Must(derivation != nullptr &&
                  EVP_KDF_derive(derivation.get(), Bytes(key), key.size(), parameters.data()) == 1);
    OPENSSL_cleanse(secret.data(), secret.size());
    return key;
}

[[noreturn]] void Refuse(const fs::path& file, const std::string& why) {
    throw Error(Code::kValue, file.string() + " " + why);
}

/// The first line of a file that others cannot read.
std::string FirstLine(const fs::path& file) {
    const Descriptor opened = Open(file, O_RDONLY | O_NONBLOCK);  // a pipe in its place must not make us wait
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) throw IoError("cannot read", file, errno);
    if (!S_ISREG(status.st_mode) || status.st_size > kLargestSecret) Refuse(file, "is no file with a secret");
    if ((status.st_mode & 077) != 0) Refuse(file, "must be readable by its owner alone (chmod 600)");
    std::string text(kLargestSecret, '\0');
    const ssize_t size = ::read(opened.get(), text.data(), text.size());
    if (size < 0) throw IoError("cannot read", file, errno);
    text.resize(static_cast<std::size_t>(size));
    std::string line = str::GetWord(text, '\n');
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace

Secret ReadPassphrase(const fs::path& file) {
    const std::string line = FirstLine(file);
    if (line.empty()) Refuse(file, "has no passphrase in its first line");
    return {Secret::Kind::kPassphrase, line};
}

Secret ReadKey(const fs::path& file) {
    const std::string line = FirstLine(file);
    if (line.size() != 2 * kKey || line.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        Refuse(file, "is no key: that has 64 hexadecimal digits; backup --new-key makes one");
    return {Secret::Kind::kKey, str::hex::Decode(line)};
}

void MakeKey(const fs::path& file) {
    const fs::path whole = fs::absolute(file);
    const Folder folder = Folder::At(whole.parent_path());
    folder.WriteNew(whole.filename(), str::hex::Encode(RandomBytes(kKey)) + "\n", 0600);
    folder.Sync();
}

/// One direction of AES-256-GCM, chunk by chunk.
class ChunkCipher {
public:
    ChunkCipher(const Secret& secret, const std::string& salt, bool sealing)
        : context_(EVP_CIPHER_CTX_new()), sealing_(sealing) {
        const bool passphrase = secret.kind == Secret::Kind::kPassphrase;
        std::string key = passphrase ? KeyOfPassphrase(secret.bytes, salt) : KeyOfKey(secret.bytes, salt);
        openssl::Must(context_ != nullptr &&
                      EVP_CipherInit_ex2(context_.get(), EVP_aes_256_gcm(), Bytes(std::string_view(key)),
                                         nullptr, sealing ? 1 : 0, nullptr) == 1);
        OPENSSL_cleanse(key.data(), key.size());
    }

    std::string Seal(std::string_view plain, bool last) {
        Begin(last);
        std::string sealed = Update(plain);
        int none = 0;
        openssl::Must(EVP_CipherFinal_ex(context_.get(), Bytes(sealed) + sealed.size(), &none) == 1);
        std::string proof(kProof, '\0');
        openssl::Must(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, kProof, proof.data()) == 1);
        return sealed + proof;
    }

    /// Nothing where it is not what was sealed there.
    std::optional<std::string> Unseal(std::string_view sealed, bool last) {
        Begin(last);
        std::string plain = Update(sealed.substr(0, sealed.size() - kProof));
        std::string proof(sealed.substr(sealed.size() - kProof));
        openssl::Must(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, kProof, proof.data()) == 1);
        int none = 0;
        if (EVP_CipherFinal_ex(context_.get(), Bytes(plain) + plain.size(), &none) != 1) return std::nullopt;
        return plain;
    }

    std::uint64_t chunks() const { return number_; }

private:
    void Begin(bool last) {
        std::array<unsigned char, kNonce> nonce{};
        for (std::size_t i = 0; i < sizeof(number_); ++i)
            nonce.at(kNonce - 2 - i) = static_cast<unsigned char>(number_ >> (8 * i));
        nonce.back() = last ? 1 : 0;
        ++number_;
        openssl::Must(EVP_CipherInit_ex2(context_.get(), nullptr, nullptr, nonce.data(), sealing_ ? 1 : 0,
                                         nullptr) == 1);
    }

    std::string Update(std::string_view in) {
        std::string out(in.size(), '\0');
        int size = 0;
        openssl::Must(
            EVP_CipherUpdate(context_.get(), Bytes(out), &size, Bytes(in), static_cast<int>(in.size())) == 1);
        return out;
    }

    std::unique_ptr<EVP_CIPHER_CTX, openssl::Deleter<EVP_CIPHER_CTX_free>> context_;
    bool sealing_;
    std::uint64_t number_ = 0;
};

Sealer::Sealer(Sink sink, const Secret& secret) : sink_(std::move(sink)) {
    const std::string salt = RandomBytes(kSalt);
    cipher_ = std::make_unique<ChunkCipher>(secret, salt, true);
    sink_(std::string(kMagic) + static_cast<char>(secret.kind) + salt);
}

Sealer::~Sealer() = default;

void Sealer::Take(std::string_view piece) {
    while (!piece.empty()) {
        const std::string_view taken = piece.substr(0, kChunk - rest_.size());
        rest_ += taken;
        piece.remove_prefix(taken.size());
        if (rest_.size() < kChunk) continue;
        sink_(cipher_->Seal(rest_, false));
        rest_.clear();
    }
}

void Sealer::Finish() { sink_(cipher_->Seal(rest_, true)); }

namespace {

/// Gives just so many bytes, fewer at the stream's end alone.
class Exactly {
public:
    explicit Exactly(Source source) : source_(std::move(source)) {}

    std::string Next(std::size_t count) {
        while (rest_.size() < count) {
            const std::string piece = source_();
            if (piece.empty()) break;
            rest_ += piece;
        }
        std::string next = rest_.substr(0, count);
        rest_.erase(0, count);
        return next;
    }

private:
    Source source_;
    std::string rest_;
};

/// What stands before the chunks; its salt.
std::string ReadHeader(Exactly& bytes, const Secret& secret) {
    const std::string header = bytes.Next(kHeader);
    if (header.size() != kHeader) throw Error(Code::kValue, "the backup ends too early: it was cut");
    const char kind = header[kMagic.size()];
    if (kind != static_cast<char>(secret.kind)) {
        throw Error(Code::kValue,
                    kind == static_cast<char>(Secret::Kind::kKey)
                        ? "the backup was encrypted with a key: --key-file names it"
                        : "the backup was encrypted with a passphrase: --passphrase-file has it");
    }
    return header.substr(kMagic.size() + 1);
}

}  // namespace

bool IsSealed(Source& source) {
    const auto begin = std::make_shared<std::string>();
    while (begin->size() < kMagic.size()) {
        const std::string piece = source();
        if (piece.empty()) break;
        *begin += piece;
    }
    const bool sealed = begin->starts_with(kMagic);
    source = [begin, rest = std::move(source)] {
        return begin->empty() ? rest() : std::exchange(*begin, "");
    };
    return sealed;
}

Source Unseal(Source source, const Secret& secret) {
    struct State {
        Exactly bytes;
        std::unique_ptr<ChunkCipher> cipher;
        bool over = false;
    };
    const auto state = std::make_shared<State>(State{Exactly(std::move(source)), nullptr});
    state->cipher = std::make_unique<ChunkCipher>(secret, ReadHeader(state->bytes, secret), false);
    return [state]() -> std::string {
        if (state->over) return "";
        const std::string sealed = state->bytes.Next(kChunk + kProof);
        state->over = sealed.size() < kChunk + kProof;
        if (sealed.size() < kProof) throw Error(Code::kValue, "the backup ends too early: it was cut");
        const bool first = state->cipher->chunks() == 0;
        auto plain = state->cipher->Unseal(sealed, state->over);
        if (plain) return *plain;
        throw Error(Code::kValue, first
                                      ? "the backup cannot be decrypted: this is not its passphrase or key, "
                                        "or the file was changed"
                                      : "the backup was changed or cut after it was made");
    };
}

}  // namespace zelvek::moving
