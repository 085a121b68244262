#include "zelvek/panel/right.h"

#include "vek/str.h"

namespace zelvek {

std::string WhoHas(Right right, const GroupNames& groups) {
    std::string named;
    if (right <= Right::kRead) named = groups.read;
    if (right <= Right::kChange && !groups.admin.empty() && groups.admin != named)
        str::inpl::Append(named, groups.admin, " or ");
    return named.empty() ? "is for root and the service's own user alone" : "needs group " + named;
}

}  // namespace zelvek
