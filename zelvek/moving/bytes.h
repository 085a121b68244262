#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "zelvek/certificates/openssl.h"

/// Bytes on their way, piece by piece, so that nothing large is ever in memory.
namespace zelvek::moving {

/// Takes the next piece. Errors: what it throws ends the whole.
using Sink = std::function<void(std::string_view)>;

/// Gives the next piece; an empty one at the end, and again after it.
using Source = std::function<std::string()>;

constexpr std::size_t kPiece = 64UL << 10;

/// An open file from where it stands on, read or written. The descriptor has to outlive what is returned.
Source FromFile(int descriptor);
Sink ToFile(int descriptor);

/// The SHA-256 of what it takes.
class Digest {
public:
    Digest();

    void Take(std::string_view piece);

    /// 64 hexadecimal digits, once.
    std::string Text();

private:
    std::unique_ptr<EVP_MD_CTX, openssl::Deleter<EVP_MD_CTX_free>> context_;
};

}  // namespace zelvek::moving
