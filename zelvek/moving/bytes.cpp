#include "zelvek/moving/bytes.h"

#include <unistd.h>

#include <cerrno>

#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::moving {

Source FromFile(int descriptor) {
    return [descriptor] {
        std::string piece(kPiece, '\0');
        ssize_t got = -1;
        do {
            got = ::read(descriptor, piece.data(), piece.size());
        } while (got < 0 && errno == EINTR);
        if (got < 0) throw IoError("cannot read", "the backup", errno);
        piece.resize(static_cast<std::size_t>(got));
        return piece;
    };
}

Sink ToFile(int descriptor) {
    return [descriptor](std::string_view piece) {
        while (!piece.empty()) {
            const ssize_t written = ::write(descriptor, piece.data(), piece.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) throw IoError("cannot write", "the file", errno);
            piece.remove_prefix(static_cast<std::size_t>(written));
        }
    };
}

Digest::Digest() : context_(EVP_MD_CTX_new()) {
    openssl::Must(context_ != nullptr && EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr) == 1);
}

void Digest::Take(std::string_view piece) {
    openssl::Must(EVP_DigestUpdate(context_.get(), piece.data(), piece.size()) == 1);
}

std::string Digest::Text() {
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    unsigned size = 0;
    openssl::Must(
        EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()), &size) == 1);
    digest.resize(size);
    return str::hex::Encode(digest);
}

}  // namespace zelvek::moving
