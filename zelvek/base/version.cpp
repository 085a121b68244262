#include "zelvek/base/version.h"

namespace zelvek {

const char* Version() { return ZELVEK_VERSION; }

}  // namespace zelvek
