#include "vek/crypto.h"

#include <cstdint>
#include <utility>

#include "double/state.h"
#include "vek/err.h"
#include "vek/str.h"

namespace vek_crypto {

namespace {

struct Named {
    std::string name;
    unsigned long bits;
};

Named Read(const std::string& pem) {
    const std::string begin = "-----BEGIN FAKE ";
    const std::size_t name_end = pem.find("-----\n");
    if (!pem.starts_with(begin) || name_end == std::string::npos)
        throw vek_err::Error("crypto", "decode", "no private key");
    Named key{pem.substr(begin.size(), name_end - begin.size()),
              static_cast<unsigned long>(str::Int(pem.substr(name_end + 6)))};
    if (pem != vek_double::FakePem(key.name, key.bits))
        throw vek_err::Error("crypto", "decode", "no private key");
    return key;
}

}  // namespace

struct RsaPrivateKey::Impl {
    Impl(std::string its_name, unsigned long its_bits) : name(std::move(its_name)), bits(its_bits) {
        Count(+1);
    }
    ~Impl() { Count(-1); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    static void Count(int change) {
        if (vek_double::World::State* world = vek_double::Current()) world->keys_held += change;
    }

    std::string name;
    unsigned long bits;
};

RsaPrivateKey::RsaPrivateKey(unsigned long bits) {
    vek_double::World::State* world = vek_double::Current();
    impl_ = std::make_unique<Impl>(std::to_string(world ? ++world->keys : 0), bits);
    vek_double::Enter("generate key", std::to_string(bits), impl_->name);
}

RsaPrivateKey::RsaPrivateKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
RsaPrivateKey::~RsaPrivateKey() = default;
RsaPrivateKey::RsaPrivateKey(RsaPrivateKey&&) noexcept = default;
RsaPrivateKey& RsaPrivateKey::operator=(RsaPrivateKey&&) noexcept = default;

std::string pem_private::Encode(const RsaPrivateKey& key) {
    return vek_double::FakePem(key.impl().name, key.impl().bits);
}

RsaPrivateKey pem_private::Decode(const std::string& pem) {
    if (vek_double::World::State* world = vek_double::Current()) ++world->decodings;
    const Named key = Read(pem);
    return RsaPrivateKey(std::make_unique<RsaPrivateKey::Impl>(key.name, key.bits));
}

std::string sign::Calculate(const RsaPrivateKey& key, const std::string& data) {
    vek_double::Enter("sign", data, key.impl().name);
    return vek_double::FakeSignature(pem_private::Encode(key), data);
}

}  // namespace vek_crypto

namespace vek_double {

namespace {

/// FNV-1a: tells texts apart, which is all that a test wants of a signature.
std::uint64_t Fingerprint(const std::string& text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return hash;
}

}  // namespace

std::string FakePem(const std::string& name, unsigned long bits) {
    return "-----BEGIN FAKE " + name + "-----\n" + std::to_string(bits) + " bits\n-----END FAKE " + name +
           "-----\n";
}

std::string FakeSignature(const std::string& pem, const std::string& data) {
    const vek_crypto::Named key = vek_crypto::Read(pem);
    std::string signature = std::to_string(Fingerprint(data)) + " signed by " + key.name + " ";
    signature.resize(key.bits / 8, '.');
    return signature;
}

}  // namespace vek_double
