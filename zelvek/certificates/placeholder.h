#pragma once

#include <string>

namespace zelvek {

/// What stands in a certificate's place until there is one, so that a web server starts.
struct Placeholder {
    std::string certificate;  // PEM, self-signed, for the name alone
    std::string key;          // PEM
};

/// A new key and certificate for a name in ASCII form, for a few days. The certificate's subject says what it
/// is.
Placeholder MakePlaceholder(const std::string& name);

/// Whether the first certificate of a PEM text is such a one. False for what cannot be read.
bool IsPlaceholder(const std::string& certificates);

}  // namespace zelvek
