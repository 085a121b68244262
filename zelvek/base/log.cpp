#include "zelvek/base/log.h"

#include <unistd.h>

#include "vek/date.h"
#include "zelvek/base/text.h"

namespace zelvek {

void Log(const std::string& text) {
    const std::string line =
        vek_date::DateTime().AsDateTime() + " zelvek: " + WithoutControls(text, ' ') + "\n";
    // One write a line, so that the lines of several threads and of the plug-ins do not mix.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace zelvek
