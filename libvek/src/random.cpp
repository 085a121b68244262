#include <sys/random.h>

#include <cerrno>
#include <system_error>

#include "vek/err.h"
#include "vek/str.h"

namespace str {

std::string Random(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t at = 0; at < count;) {
        const auto got = getrandom(bytes.data() + at, count - at, 0);
        if (got >= 0) {
            at += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            throw vek_err::Error("str", "random", std::generic_category().message(errno));
        }
    }
    return bytes;
}

}  // namespace str
