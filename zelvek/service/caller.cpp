#include "zelvek/service/caller.h"

#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/service/socket.h"

namespace zelvek {

namespace {

std::optional<gid_t> IdOfGroup(const std::string& option, const std::string& name) {
    if (name.empty()) return std::nullopt;
    const group* entry = ::getgrnam(name.c_str());  // before any other thread is there
    if (entry == nullptr)
        throw Error(Code::kValue, option + ": there is no group \"" + Printable(name) + "\"");
    return entry->gr_gid;
}

/// All groups of the process that has connected. Asking a database of users would find what holds now, and
/// let whoever changes between two looks in.
std::vector<gid_t> GroupsOf(int connection, gid_t main_group) {
    constexpr std::size_t kFew = 32;
    std::vector<gid_t> groups(kFew);
    socklen_t size = 0;
    for (;;) {
        size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (::getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) break;
        const std::size_t needed = size / sizeof(gid_t);
        if (errno != ERANGE || needed <= groups.size())
            throw IoError("asking for the groups of who is connected to", "the socket", errno);
        groups.resize(needed);
    }
    groups.resize(size / sizeof(gid_t));
    groups.push_back(main_group);
    return groups;
}

}  // namespace

std::vector<gid_t> Groups::All() const {
    std::vector<gid_t> all;
    for (const auto& each : {admin, read}) {
        if (each) all.push_back(*each);
    }
    return all;
}

Groups FindGroups(const GroupNames& names) {
    return {IdOfGroup("--admin-group", names.admin), IdOfGroup("--read-group", names.read)};
}

Right RightOf(uid_t user, const std::vector<gid_t>& groups, uid_t service, const Groups& admitted) {
    const auto in = [&](const std::optional<gid_t>& wanted) {
        return wanted && std::find(groups.begin(), groups.end(), *wanted) != groups.end();
    };
    if (user == service || user == 0) return Right::kOwn;
    if (in(admitted.admin)) return Right::kChange;
    return in(admitted.read) ? Right::kRead : Right::kNone;
}

Caller CallerOf(int connection, const Groups& admitted) {
    const ucred peer = PeerOf(connection);
    return {peer.pid, peer.uid, RightOf(peer.uid, GroupsOf(connection, peer.gid), ::geteuid(), admitted)};
}

}  // namespace zelvek
