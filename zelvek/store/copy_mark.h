#pragma once

#include <string>

#include "zelvek/store/connection.h"
#include "zelvek/store/store.h"

/// A store into which another one is being copied has a mark, until all of it is there.
namespace zelvek::copy_mark {

/// The setting that is the mark.
inline constexpr const char* kName = "copy_unfinished";

/// Where the copy comes from, as `Place::Shown` has it; empty for a store without the mark.
std::string Of(Connection& connection);

void Set(Connection& connection, const std::string& source);
void Remove(Connection& connection);

/// Errors: Error of code kIo for a store with the mark.
void CheckIsNone(Store& store);

}  // namespace zelvek::copy_mark
