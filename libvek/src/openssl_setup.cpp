#include "openssl_setup.h"

#include <openssl/crypto.h>

namespace vek_openssl {

void KeepUntilExit() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace vek_openssl
