#include "zelvek/base/access_list.h"

#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "zelvek/base/error.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

constexpr const char* kAttribute = "system.posix_acl_access";
constexpr unsigned kGroupBits = 3;  // how far they stand left of everybody's

unsigned ModeOf(const fs::path& path) {
    struct stat found {};
    if (::lstat(path.c_str(), &found) != 0) throw IoError("looking at", path, errno);
    return found.st_mode & 07777U;
}

/// An access list as the system takes it.
class AccessList {
public:
    AccessList() {
        const posix_acl_xattr_header header{htole32(POSIX_ACL_XATTR_VERSION)};
        Append(&header, sizeof(header));
    }

    void Add(int tag, unsigned rights, unsigned id = static_cast<unsigned>(ACL_UNDEFINED_ID)) {
        const posix_acl_xattr_entry entry{htole16(static_cast<unsigned short>(tag)),
                                          htole16(static_cast<unsigned short>(rights)), htole32(id)};
        Append(&entry, sizeof(entry));
    }

    const std::string& text() const { return text_; }

private:
    void Append(const void* part, std::size_t size) { text_.append(static_cast<const char*>(part), size); }

    std::string text_;
};

void RemoveList(const fs::path& path, unsigned mode) {
    if (!HasAccessList(path)) return;
    // The second digit has been the list's bound: from here on it is the file's own group's.
    const unsigned others = mode & 07U;
    if (::chmod(path.c_str(), (mode & ~070U) | (others << kGroupBits)) != 0 ||
        ::removexattr(path.c_str(), kAttribute) != 0) {
        throw IoError("closing to groups", path, errno);
    }
}

}  // namespace

void LetGroups(const fs::path& path, unsigned rights, std::vector<gid_t> groups) {
    const unsigned mode = ModeOf(path);
    if (groups.empty()) return RemoveList(path, mode);
    std::sort(groups.begin(), groups.end());
    groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
    const unsigned others = mode & 07U;
    AccessList list;
    list.Add(ACL_USER_OBJ, (mode >> (2 * kGroupBits)) & 07U);
    list.Add(ACL_GROUP_OBJ, others);
    for (const gid_t group : groups) list.Add(ACL_GROUP, rights, group);
    list.Add(ACL_MASK, rights | others);
    list.Add(ACL_OTHER, others);
    if (::setxattr(path.c_str(), kAttribute, list.text().data(), list.text().size(), 0) != 0)
        throw IoError("opening to groups", path, errno);
}

bool HasAccessList(const fs::path& path) { return ::lgetxattr(path.c_str(), kAttribute, nullptr, 0) > 0; }

}  // namespace zelvek
