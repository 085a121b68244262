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

// Behaviour: A lock that a dying process leaves a moment later is taken all the same
TEST(FileLock, OfAProcessThatJustEndedIsTaken) {
    const parts::TempFolder folder;
    const std::filesystem::path file = folder.path() / "lock";
    std::optional<FileLock> held(std::in_place, file, "taken");
    std::thread dying([&] {
        std::this_thread::sleep_for(FileLock::kAfterlife / 10);
        held.reset();
    });
    EXPECT_EQ(parts::TypeOf([&] { const FileLock later(file, "taken"); }), "none");
    dying.join();
}

// Behaviour: A lock is waited for, but not for ever
TEST(FileLock, IsWaitedForUntilTheLimit) {
    const parts::TempFolder folder;
    const std::filesystem::path file = folder.path() / "lock";
    std::optional<FileLock> first(std::in_place, file, "taken");
    EXPECT_EQ(parts::TypeOf([&] { FileLock::WaitFor(file, std::chrono::milliseconds(30)); }), "busy");
    std::atomic<bool> asked{false};
    std::atomic<bool> got{false};
    std::thread other([&] {
        asked = true;
        const FileLock second = FileLock::WaitFor(file, std::chrono::minutes(5));
        got = true;
    });
    while (!asked) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // long enough to get what is free
    EXPECT_FALSE(got);
    first.reset();
    other.join();
    EXPECT_TRUE(got);
}

// Behaviour: What cannot be locked, or can be opened by others too, is an error with its path
TEST(FileLock, OfWhatCannotBeLockedIsAnError) {
    const parts::TempFolder folder;
    parts::Put(folder.path() / "shared", "");
    std::filesystem::permissions(folder.path() / "shared", std::filesystem::perms{0644});
    std::filesystem::create_symlink("shared", folder.path() / "link");
    for (const char* name : {"link", "missing/lock", "shared", "."}) {
        const auto file = folder.path() / name;
        const parts::Failure failure = parts::FailureOf([&] { const FileLock lock(file, "taken"); });
        EXPECT_EQ(failure.type, "io") << name;
        EXPECT_THAT(failure.text, testing::HasSubstr(file.string()));
    }
}

// Behaviour: A lock can be taken again after one that was made under an odd umask
TEST(FileLock, ModeDoesNotDependOnTheUmask) {
    const parts::TempFolder folder;
    const mode_t before = umask(0777);
    const std::string type = parts::TypeOf([&] { const FileLock lock(folder.path() / "lock", "taken"); });
    umask(before);
    EXPECT_EQ(type, "none");
    EXPECT_EQ(parts::Mode(folder.path() / "lock"), 0600U);
}

}  // namespace
