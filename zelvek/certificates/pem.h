#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zelvek {

/// One block of a PEM text (RFC 7468).
struct PemBlock {
    std::string label;  // "CERTIFICATE", "PRIVATE KEY"
    std::string der;
};

/// The blocks of a text that holds blocks and white space alone. Nothing is returned for a text with anything
/// else in it: explanations, headers (an encrypted key has them), broken base64.
std::optional<std::vector<PemBlock>> ReadPem(const std::string& text);

}  // namespace zelvek
