#pragma once

#include <string>
#include <vector>

#include "zelvek/base/form.h"

namespace zelvek {

struct Csr {
    std::string request;  // PEM
    std::string key;      // PKCS #8 PEM, not encrypted
};

/// A new key and a request for all `names` as DNS subject alternative names (Unicode names in their ASCII
/// form, each once); the first is the common name where it has at most 64 characters. `parameters` choose the
/// rest: "key_type" (rsa, ec), "key_size" (2048 to 8192 bits), "key_curve" (P-256, P-384, P-521), "country",
/// "state", "locality", "organization", "unit", "email". Without them: RSA, 2048 bits. Errors: Error of
/// code kValue that says which value is wrong, also for an empty list of names.
Csr MakeCsr(const std::vector<std::string>& names, const Parameters& parameters);

}  // namespace zelvek
