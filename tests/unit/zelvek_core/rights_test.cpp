// Who may ask the service for what.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <vector>

#include "zelvek/base/access_list.h"
#include "zelvek/base/error.h"
#include "zelvek/panel/functions.h"
#include "zelvek/service/caller.h"
#include "zelvek/service/connections.h"

namespace {

namespace fs = std::filesystem;
using zelvek::Caller;
using zelvek::Connections;
using zelvek::Groups;
using zelvek::Right;
using zelvek::RightOf;
using zelvek::WhoHas;

constexpr uid_t kService = 900;
constexpr gid_t kAdmins = 70;
constexpr gid_t kReaders = 71;
constexpr Groups kBoth{kAdmins, kReaders};

// Behaviours of: Rights

// Behaviour: The service's own user and root may ask everything, members of the group of administrators what
//   people change, members of the group of readers what is told without keys, and nobody else anything
TEST(Rights, ComeFromUserAndGroups) {
    EXPECT_EQ(RightOf(kService, {}, kService, kBoth), Right::kOwn);
    EXPECT_EQ(RightOf(0, {}, kService, kBoth), Right::kOwn);
    EXPECT_EQ(RightOf(1000, {1000, kAdmins}, kService, kBoth), Right::kChange);
    EXPECT_EQ(RightOf(1000, {kReaders, 1000}, kService, kBoth), Right::kRead);
    EXPECT_EQ(RightOf(1000, {kReaders, kAdmins}, kService, kBoth), Right::kChange) << "in both";
    EXPECT_EQ(RightOf(1000, {1000, 72}, kService, kBoth), Right::kNone);
    EXPECT_EQ(RightOf(1000, {}, kService, kBoth), Right::kNone);
}

// Behaviour: A group that is not named has no members with rights, group 0 neither
TEST(Rights, OfAGroupThatIsNotNamedAreNone) {
    EXPECT_EQ(RightOf(1000, {0, kAdmins, kReaders}, kService, {}), Right::kNone);
    EXPECT_EQ(RightOf(1000, {0, kAdmins}, kService, {std::nullopt, kReaders}), Right::kNone);
    EXPECT_EQ(RightOf(1000, {0, kReaders}, kService, {kAdmins, std::nullopt}), Right::kNone);
}

// Behaviour: A refusal names the groups that would have the right, or else that nobody has it but root and
// the
//   service's own user
TEST(Rights, AreNamedInARefusal) {
    EXPECT_EQ(WhoHas(Right::kRead, {"admins", "readers"}), "needs group readers or admins");
    EXPECT_EQ(WhoHas(Right::kRead, {"admins", ""}), "needs group admins");
    EXPECT_EQ(WhoHas(Right::kRead, {"staff", "staff"}), "needs group staff");
    EXPECT_EQ(WhoHas(Right::kChange, {"admins", "readers"}), "needs group admins");
    const std::string nobody = "is for root and the service's own user alone";
    EXPECT_EQ(WhoHas(Right::kChange, {"", "readers"}), nobody);
    EXPECT_EQ(WhoHas(Right::kOwn, {"admins", "readers"}), nobody);
}

// Behaviour: No function can be asked without a right, and a query of which nobody has said whose it is has
//   none
TEST(Rights, AreNeededForEveryFunction) {
    EXPECT_EQ((zelvek::Query{zelvek::Parameters(""), {}}).right, Right::kNone);
    for (const zelvek::PanelFunction& function : zelvek::EveryFunction())
        EXPECT_GT(function.needs, Right::kNone) << function.name;
}

/// Callers and the other ends of their connections.
class Callers {
public:
    ~Callers() {
        for (const int end : ends_) ::close(end);
    }

    /// Whether the service takes one more connection of this caller.
    bool Take(const Caller& caller) {
        int pair[2]{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        ends_.insert(ends_.end(), {pair[0], pair[1]});
        connections_.Open(pair[0], caller);
        return connections_.CallerAt(pair[0]).has_value();
    }

private:
    Connections connections_;
    std::vector<int> ends_;
};

// Behaviour: Other users than the service's have no more than 64 connections open, all together, so that its
//   own processes find a place
TEST(Rights, OfOthersLeaveTheServiceItsConnections) {
    Callers callers;
    for (int open = 0; open < Connections::kOfOtherUsers; ++open)
        EXPECT_TRUE(callers.Take({1000 + open, 1000, open % 2 == 0 ? Right::kRead : Right::kNone}));
    EXPECT_FALSE(callers.Take({2000, 1001, Right::kChange}));
    EXPECT_FALSE(callers.Take({2001, 1002, Right::kNone}));
    EXPECT_TRUE(callers.Take({3000, kService, Right::kOwn}));
}

/// A file and a folder, which are gone afterwards.
class AccessList : public ::testing::Test {
protected:
    AccessList() {
        std::string pattern = (fs::temp_directory_path() / "list.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        std::ofstream(folder_ / "file") << "text";
        ::chmod(file().c_str(), 0600);
    }
    ~AccessList() override { fs::remove_all(folder_); }

    fs::path file() const { return folder_ / "file"; }

    static unsigned Mode(const fs::path& path) {
        struct stat found {};
        EXPECT_EQ(::stat(path.c_str(), &found), 0);
        return found.st_mode & 0777U;
    }

    fs::path folder_;
};

// Behaviour: An access list lets groups in and nobody else, and without groups there is none any more
TEST_F(AccessList, LetsGroupsInAndNobodyElse) {
    zelvek::LetGroups(file(), 6, {kReaders, kAdmins, kReaders});
    EXPECT_TRUE(zelvek::HasAccessList(file()));
    EXPECT_EQ(Mode(file()), 0660U) << "the second digit is the list's bound";
    zelvek::LetGroups(file(), 6, {});
    EXPECT_FALSE(zelvek::HasAccessList(file()));
    EXPECT_EQ(Mode(file()), 0600U);
    ::chmod(folder_.c_str(), 0755);
    zelvek::LetGroups(folder_, 1, {kReaders});
    EXPECT_EQ(Mode(folder_), 0755U) << "what everybody has stays";
    zelvek::LetGroups(folder_, 1, {});
    EXPECT_EQ(Mode(folder_), 0755U);
}

// Behaviour: An access list lets groups in ...
TEST_F(AccessList, IsAnErrorWhereItCannotBeMade) {
    EXPECT_THROW(zelvek::LetGroups(folder_ / "missing", 6, {kReaders}), zelvek::Error);
    EXPECT_THROW(zelvek::LetGroups("/proc/self/status", 6, {kReaders}), zelvek::Error);
}

}  // namespace
