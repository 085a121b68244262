#include "zelvek/certificates/pem.h"

#include <algorithm>
#include <string_view>

#include "zelvek/certificates/openssl.h"

namespace zelvek {
namespace {

constexpr std::string_view kWhite = " \t\r\n\f\v";
constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The bytes of base64 text without white space; nothing where it is none.
std::optional<std::string> Decode(const std::string& base64) {
    const std::size_t digits = base64.find_last_not_of('=') + 1;
    const std::size_t padding = base64.size() - digits;
    if (base64.empty() || base64.size() % 4 != 0 || padding > 2) return std::nullopt;
    // OpenSSL would take a "=" in the middle for zeros, and skip dashes at the end.
    if (base64.find_first_not_of(kBase64) < digits) return std::nullopt;
    std::string bytes(base64.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(base64.data()),
                                       static_cast<int>(base64.size()));
    if (length < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(length) - padding);  // the padding was decoded as zeros
    return bytes;
}

/// The block at the beginning of `text`, which loses it.
std::optional<PemBlock> TakeBlock(std::string_view& text) {
    if (!text.starts_with(kBegin)) return std::nullopt;
    const std::size_t label_end = text.find(kDashes, kBegin.size());
    if (label_end == std::string_view::npos) return std::nullopt;
    const std::string label(text.substr(kBegin.size(), label_end - kBegin.size()));
    text.remove_prefix(label_end + kDashes.size());

    const std::string end = "-----END " + label + "-----";
    const std::size_t body_end = text.find(kDashes);  // the next dashes have to be the end of this block
    if (body_end == std::string_view::npos || !text.substr(body_end).starts_with(end)) return std::nullopt;
    std::string base64;
    std::copy_if(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(body_end),
                 std::back_inserter(base64), [](char c) { return kWhite.find(c) == std::string_view::npos; });
    text.remove_prefix(body_end + end.size());

    std::optional<std::string> der = Decode(base64);
    if (!der) return std::nullopt;
    return PemBlock{label, std::move(*der)};
}

void SkipWhite(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kWhite), text.size()));
}

}  // namespace

std::optional<std::vector<PemBlock>> ReadPem(const std::string& text) {
    std::vector<PemBlock> blocks;
    std::string_view rest = text;
    for (SkipWhite(rest); !rest.empty(); SkipWhite(rest)) {
        std::optional<PemBlock> block = TakeBlock(rest);
        if (!block) return std::nullopt;
        blocks.push_back(std::move(*block));
    }
    return blocks;
}

}  // namespace zelvek
