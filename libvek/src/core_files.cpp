#include <sys/prctl.h>
#include <sys/resource.h>

#include <cerrno>
#include <system_error>

#include "vek/err.h"
#include "vek/proc.h"

namespace vek_proc {

void LeaveNoCoreFile() {
    // The limit, which child processes take over, counts for files alone. A program to which the system hands
    // cores gets none of a process that is not dumpable; child processes begin as dumpable ones.
    const rlimit none{0, 0};
    if (setrlimit(RLIMIT_CORE, &none) != 0 || prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        throw vek_err::Error("proc", "core", std::generic_category().message(errno));
}

}  // namespace vek_proc
