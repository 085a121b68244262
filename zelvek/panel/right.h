#pragma once

#include <string>

namespace zelvek {

/// What a caller may ask for; each has the ones before it, too.
enum class Right {
    kNone,    // nothing at all
    kRead,    // what is told without any key
    kChange,  // what people change, and add
    kOwn,     // what runs ask for, keys among it: the service's own user, and root
};

/// Groups of this machine whose members have a right; empty where nobody has it by a group.
struct GroupNames {
    std::string admin = {};  // Right::kChange
    std::string read = {};   // Right::kRead
};

/// Who has that right, for the sentence of a refusal.
std::string WhoHas(Right right, const GroupNames& groups);

}  // namespace zelvek
