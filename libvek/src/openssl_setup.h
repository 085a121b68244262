#pragma once

namespace vek_openssl {

/// To be called before anything else of OpenSSL or libcurl: keeps OpenSSL from freeing its state when `main`
/// has returned, because static objects may need it after that.
void KeepUntilExit();

}  // namespace vek_openssl
