#include "zelvek/base/authority.h"

namespace zelvek {

const std::string& DirectoryUrl() {
    static const std::string url = AMBRIN_DIRECTORY_URL;
    return url;
}

}  // namespace zelvek
