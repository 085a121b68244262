#pragma once

#include <string>

namespace zelvek::dns {

/// Checks that the file holds one TSIG key as `tsig-keygen` writes it, and belongs to this service's user,
/// who alone may read it. The form is checked because the DNS tools quote what they cannot read in their
/// messages. Errors: Error of code kValue that never holds anything from inside the file.
void CheckTsigKeyFile(const std::string& file);

}  // namespace zelvek::dns
