#pragma once

#include <functional>
#include <string>
#include <vector>

#include "zelvek/doctor/check.h"

namespace zelvek::doctor {

/// Looks at many names, some at once, since most of the time nobody answers. What `look` throws is a check
/// that went wrong. In the order of the names.
Checks InParallel(const std::vector<std::string>& names,
                  const std::function<Checks(const std::string&)>& look);

}  // namespace zelvek::doctor
