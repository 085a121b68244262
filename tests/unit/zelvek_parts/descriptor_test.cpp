#include "zelvek/base/descriptor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "unit/zelvek_parts/support.h"

namespace {

using zelvek::Descriptor;
using zelvek::Open;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

// Behaviours of: Start and store

// Behaviour: A descriptor has one owner, which closes it at its end
TEST(Descriptor, IsClosedAtItsEnd) {
    int number = -1;
    {
        const Descriptor opened = Open("/", O_RDONLY);
        number = opened.get();
        EXPECT_TRUE(opened);
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
}

// Behaviour: A descriptor has one owner ...
TEST(Descriptor, HasOneOwnerAtATime) {
    Descriptor first = Open("/", O_RDONLY);
    Descriptor second = Open("/", O_RDONLY);
    const int number = first.get();
    const int before = second.get();
    second = std::move(first);
    EXPECT_EQ(second.get(), number);
    EXPECT_FALSE(IsOpen(before)) << "what it owned before is closed at once";
    const Descriptor third(std::move(second));
    EXPECT_TRUE(IsOpen(third.get()));
}

// Behaviour: A descriptor has one owner ...
TEST(Descriptor, ThatIsReleasedStaysOpen) {
    int number = -1;
    {
        Descriptor opened = Open("/", O_RDONLY);
        number = opened.release();
        EXPECT_FALSE(opened);
        EXPECT_EQ(opened.get(), -1);
    }
    EXPECT_TRUE(IsOpen(number));
    close(number);
}

// Behaviour: Closing a descriptor leaves the reason of a failure alone
TEST(Descriptor, LeavesTheReasonOfAFailureAlone) {
    {
        const Descriptor broken(1'000'000);  // closing it fails
        errno = EACCES;
    }
    EXPECT_EQ(errno, EACCES);
}

// Behaviour: What cannot be opened is an error with its path and the reason
TEST(Descriptor, ThatCannotBeOpenedIsAnErrorWithItsPath) {
    const parts::Failure failure = parts::FailureOf([] { Open("/nonexistent/file", O_RDONLY); });
    EXPECT_EQ(failure.type, "io");
    EXPECT_EQ(failure.text, "cannot open /nonexistent/file: No such file or directory");
}

// Behaviour: A file that somebody else may have exchanged is read only where it is a small regular file
TEST(SmallFile, IsReadAndNothingElse) {
    const parts::TempFolder folder;
    const auto file = folder.path() / "file";
    parts::Put(file, "content");
    EXPECT_EQ(zelvek::ReadSmallFile(file, 7), "content");
    EXPECT_EQ(zelvek::ReadSmallFile(file, 6), std::nullopt);
    std::filesystem::create_symlink("file", folder.path() / "link");
    ASSERT_EQ(mkfifo((folder.path() / "pipe").c_str(), 0600), 0);
    for (const char* name : {"link", "pipe", "missing", "."})
        EXPECT_EQ(zelvek::ReadSmallFile(folder.path() / name, 100), std::nullopt) << name;
    EXPECT_EQ(zelvek::ReadSmallFile("/dev/zero", 100), std::nullopt);
    parts::Put(file, "");
    EXPECT_EQ(zelvek::ReadSmallFile(file, 7), "");
}

}  // namespace
