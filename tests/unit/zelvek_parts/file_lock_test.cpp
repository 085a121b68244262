#include "zelvek/base/file_lock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "unit/zelvek_parts/support.h"

namespace {

using zelvek::FileLock;

// Behaviours of: Start and store

// Behaviour: A lock is refused while somebody else has it, and free when its owner is gone
TEST(FileLock, IsRefusedWhileSomebodyElseHasIt) {
    const parts::TempFolder folder;
    const std::filesystem::path file = folder.path() / "lock";
    {
        const FileLock lock(file, "taken");
        const parts::Failure failure =
            parts::FailureOf([&] { const FileLock second(file, "taken already"); });
        EXPECT_EQ(failure.type, "busy");
        EXPECT_EQ(failure.text, "taken already");
    }
    EXPECT_EQ(parts::TypeOf([&] { const FileLock later(file, "taken"); }), "none");
    EXPECT_EQ(parts::Mode(file), 0600U);
}

// Behaviour: A lock of a folder is waited for
TEST(FileLock, OfAFolderIsWaitedFor) {
    const parts::TempFolder folder;
    std::optional<FileLock> first = FileLock::WaitFor(folder.path());
    std::atomic<bool> asked{false};
    std::atomic<bool> got{false};
    std::thread other([&] {
        asked = true;
        const FileLock second = FileLock::WaitFor(folder.path());
        got = true;
    });
    while (!asked) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // long enough to get what is free
    EXPECT_FALSE(got);
    first.reset();
    other.join();
    EXPECT_TRUE(got);
}

// Behaviour: What cannot be locked is an error with its path
TEST(FileLock, OfWhatCannotBeLockedIsAnError) {
    const parts::TempFolder folder;
    std::filesystem::create_symlink(folder.path(), folder.path() / "link");
    EXPECT_EQ(parts::TypeOf([&] { FileLock::WaitFor(folder.path() / "missing"); }), "io");
    EXPECT_EQ(parts::TypeOf([&] { FileLock::WaitFor(folder.path() / "link"); }), "io");
    EXPECT_EQ(parts::TypeOf([&] { const FileLock lock(folder.path() / "link", "taken"); }), "io");
}

}  // namespace
