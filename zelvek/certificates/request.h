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
/// rest, by the keys in base/request_keys.h; others are not looked at. Errors: Error of code kValue that says
/// which value is wrong, also for an empty list of names.
Csr MakeCsr(const std::vector<std::string>& names, const Parameters& parameters);

/// Whether `MakeCsr` makes a request of these. No key is made. Errors: those of `MakeCsr`.
void CheckCsr(const std::vector<std::string>& names, const Parameters& parameters);

}  // namespace zelvek
