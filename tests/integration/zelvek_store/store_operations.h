#pragma once

#include <functional>
#include <map>
#include <string>

#include "zelvek/store/store.h"

namespace zelvek::testing {

/// A use of one of the store's operations, on a database of jobs that each have everything.
using Operation = std::function<void(Transaction&)>;
using Operations = std::map<std::string, Operation>;

/// By their names, such as "jobs::Find": every operation that the store's headers declare.
Operations AllOperations();

}  // namespace zelvek::testing
