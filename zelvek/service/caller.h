#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "zelvek/panel/right.h"

namespace zelvek {

/// The groups whose members may ask, by their numbers.
struct Groups {
    std::optional<gid_t> admin = {};
    std::optional<gid_t> read = {};

    /// Those that there are.
    std::vector<gid_t> All() const;
};

/// Finds them in the machine's database, while there is one thread: a later change there takes a new start.
/// Errors: Error of code kValue for one that is not there.
Groups FindGroups(const GroupNames& names);

/// Who is at the other end of a connection, as the system has noted it when the connection was made: what the
/// process becomes afterwards changes nothing.
struct Caller {
    pid_t process = 0;
    uid_t user = 0;
    Right right = Right::kNone;
};

/// Errors: Error of code kIo.
Caller CallerOf(int connection, const Groups& admitted);

/// What a user with these groups may ask of a service of the user `service`.
Right RightOf(uid_t user, const std::vector<gid_t>& groups, uid_t service, const Groups& admitted);

}  // namespace zelvek
