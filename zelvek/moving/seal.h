#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "zelvek/moving/bytes.h"

/// Encryption of a stream of bytes, which nobody without the secret can read, change, cut or put together
/// from others.
///
///     sealed = "zelvek sealed 1\n" kind salt chunk* last
///     kind   = "p" (passphrase) or "k" (key)
///     salt   = 32 random bytes
///     chunk  = 65536 encrypted bytes, 16 bytes that prove them
///     last   = 0 to 65535 encrypted bytes, 16 bytes that prove them
///
/// The key of each stream is its own: scrypt (N = 2^17, r = 8, p = 1; RFC 7914) of passphrase and salt, or
/// HKDF-SHA256 (RFC 5869) of key and salt. A chunk is AES-256-GCM, its nonce the chunk's number in 11 bytes
/// and one byte that is 1 for the last: no chunk can be taken for another.
namespace zelvek::moving {

struct Secret {
    enum class Kind : char { kPassphrase = 'p', kKey = 'k' };
    Kind kind;
    std::string bytes;
};

/// The first line of a file that others cannot read; nothing is made of it but keys. Errors: Error of code
/// kValue or kIo, without what is in the file.
Secret ReadPassphrase(const std::filesystem::path& file);

/// 64 hexadecimal digits in a file that others cannot read. Errors: as `ReadPassphrase`.
Secret ReadKey(const std::filesystem::path& file);

/// Makes such a file, mode 0600, where there is none. Errors: Error of code kIo.
void MakeKey(const std::filesystem::path& file);

class ChunkCipher;

/// Encrypts what it takes.
class Sealer {
public:
    Sealer(Sink sink, const Secret& secret);
    ~Sealer();
    Sealer(const Sealer&) = delete;
    Sealer& operator=(const Sealer&) = delete;

    void Take(std::string_view piece);

    /// After the last piece; without it the stream cannot be opened.
    void Finish();

private:
    Sink sink_;
    std::unique_ptr<ChunkCipher> cipher_;
    std::string rest_;
};

/// Whether a stream is a sealed one; `source` gives the same bytes afterwards.
bool IsSealed(Source& source);

/// What was sealed. Gives nothing that is not proved to be what was sealed, in its order. The source throws
/// an Error of code kValue: the secret is another one, the stream was changed, or its end is missing.
Source Unseal(Source source, const Secret& secret);

}  // namespace zelvek::moving
