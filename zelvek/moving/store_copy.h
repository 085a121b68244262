#pragma once

#include <functional>
#include <string>
#include <vector>

#include "zelvek/store/place.h"

/// A store as it goes from one engine to another.
namespace zelvek::moving {

/// What was copied of a table: the same on both sides, as they were read afterwards.
struct CopiedTable {
    std::string name;
    long long rows = 0;
    std::string digest;  // SHA-256 of all rows in the order of their keys, hexadecimal
};

struct CopyReport {
    std::vector<CopiedTable> tables;
    long long mended = 0;  // texts with bytes that no store takes any more; U+FFFD stands for these now
};

/// Told while it goes on: so many rows of a table are there.
using CopyProgress = std::function<void(const std::string& table, long long rows)>;

/// Copies everything that a store keeps into another one, which is made where it is a file, and then compares
/// both row by row. Both are brought to the newest version first. What an interrupted copy from the same
/// place has left is gone on with; no service uses it before it is whole. Errors: Error: of code kBusy where
/// a service uses either, of code kExists for a target with anything else in it, of code kMissed for a source
/// that is not there, of code kIo where both differ in the end.
CopyReport CopyStore(const Place& from, const Place& to, const CopyProgress& progress);

}  // namespace zelvek::moving
