#include "zelvek/base/folder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "unit/zelvek_parts/support.h"

namespace {

namespace fs = std::filesystem;
using parts::Entries;
using parts::TypeOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using zelvek::Folder;

class OpenFolder : public testing::Test {
protected:
    OpenFolder() {
        fs::create_directory(temp_.path() / "victim");
        parts::Put(temp_.path() / "victim" / "file", "kept");
        fs::create_directory(path_);
        fs::create_symlink("../victim", path_ / "link");
    }

    parts::TempFolder temp_;
    fs::path path_ = temp_.path() / "own";
};

// Behaviours of: Start and store

// Behaviour: A folder in use stays the one that was opened, though another takes its name meanwhile
TEST_F(OpenFolder, StaysTheOneThatWasOpened) {
    const Folder folder = Folder::At(path_);
    fs::rename(path_, temp_.path() / "moved");
    fs::create_symlink("victim", path_);
    folder.WriteNew("new", "x", 0600);
    EXPECT_TRUE(folder.Make("inner", 0755));
    folder.Remove("file");
    folder.Sync();
    EXPECT_THAT(Entries(temp_.path() / "victim"), ElementsAre("file"));
    EXPECT_THAT(Entries(temp_.path() / "moved"), ElementsAre("inner", "link", "new"));
}

// Behaviour: No link inside a folder in use is followed
TEST_F(OpenFolder, FollowsNoLink) {
    const Folder folder = Folder::At(path_);
    EXPECT_EQ(TypeOf([&] { folder.Open("link"); }), "io");
    EXPECT_EQ(TypeOf([&] { folder.WriteNew("link", "x", 0600); }), "io");
    EXPECT_FALSE(folder.Make("link", 0777));
    EXPECT_EQ(parts::Mode(temp_.path() / "victim") & 022, 0u);
    EXPECT_EQ(folder.LinkTarget("link"), "../victim");
    EXPECT_TRUE(S_ISLNK(folder.Status("link").st_mode));
    folder.Remove("link");
    EXPECT_THAT(Entries(path_), IsEmpty());
    EXPECT_THAT(Entries(temp_.path() / "victim"), ElementsAre("file"));
}

// Behaviour: What is made has just the mode that was asked for, whatever the umask
TEST_F(OpenFolder, MakesFoldersOfJustOneMode) {
    for (const mode_t mask : {0, 022, 077, 0777}) {
        const mode_t before = umask(mask);
        const std::string type = TypeOf([&] {
            Folder::At(path_).Make("inner", 0755);
            zelvek::MakeFolders(temp_.path() / "a" / "b", 0750);
        });
        umask(before);
        EXPECT_EQ(type, "none");
        EXPECT_EQ(parts::Mode(path_ / "inner"), 0755u);
        EXPECT_EQ(parts::Mode(temp_.path() / "a"), 0750u);
        EXPECT_EQ(parts::Mode(temp_.path() / "a" / "b"), 0750u);
        fs::remove(path_ / "inner");
        fs::remove_all(temp_.path() / "a");
    }
}

// Behaviour: Folders that are there keep their modes
TEST_F(OpenFolder, LeavesFoldersThatAreThere) {
    fs::permissions(path_, fs::perms{0711});
    zelvek::MakeFolders(path_, 0755);
    zelvek::MakeFolders(path_ / "link" / "more", 0755);
    EXPECT_EQ(parts::Mode(path_), 0711u);
    EXPECT_TRUE(fs::is_directory(temp_.path() / "victim" / "more"));
    EXPECT_EQ(TypeOf([&] { zelvek::MakeFolders(temp_.path() / "victim" / "file", 0755); }), "io");
    EXPECT_EQ(TypeOf([&] { zelvek::MakeFolders(temp_.path() / "victim" / "file" / "x", 0755); }), "io");
}

// Behaviour: A folder is removed with the files in it; one that holds folders is not
TEST_F(OpenFolder, RemovesAFolderOfFiles) {
    const Folder folder = Folder::At(temp_.path());
    folder.Remove("victim");
    folder.Remove("missing");
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("own"));
    fs::create_directory(path_ / "inner");
    EXPECT_EQ(TypeOf([&] { folder.Remove("own"); }), "io");
    EXPECT_EQ(folder.Status("missing").st_mode, 0u);
    EXPECT_EQ(folder.LinkTarget("own"), "");
}

}  // namespace
