#pragma once

#include <functional>
#include <map>
#include <string>

#include "zelvek/store/store.h"

namespace zelvek::testing {

/// Every operation of the store, by the name of its header's namespace and its own, with values that have its
/// statements prepared.
std::map<std::string, std::function<void(Transaction&)>> StoreOperations();

}  // namespace zelvek::testing
