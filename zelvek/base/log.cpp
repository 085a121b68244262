#include "zelvek/base/log.h"

#include <unistd.h>

#include "vek/date.h"

namespace zelvek {

void Log(const std::string& text) {
    std::string line = vek_date::DateTime().AsDateTime() + " zelvek: " + text;
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
    }
    line += '\n';
    // One write a line, so that the lines of several threads and of the plug-ins do not mix.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace zelvek
