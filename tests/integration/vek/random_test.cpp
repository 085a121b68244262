// Random bytes, from the system and from one that gives them hesitatingly.
#include <gtest/gtest.h>
#include <sys/random.h>
#include <sys/types.h>

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <utility>
#include <vector>

#include "vek/err.h"
#include "vek/str.h"

namespace {

// The system's next answers in this thread: a count of bytes, or an error's number, negative.
thread_local std::list<int> answers;
thread_local std::vector<std::pair<std::size_t, unsigned>> asked;  // sizes and flags

}  // namespace

// The executable's symbol hides the C library's.
extern "C" ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
    static auto* const original =
        reinterpret_cast<ssize_t (*)(void*, size_t, unsigned)>(dlsym(RTLD_NEXT, "getrandom"));
    asked.emplace_back(size, flags);
    if (answers.empty()) return original(buffer, size, flags);
    const int answer = answers.front();
    answers.pop_front();
    if (answer < 0) {
        errno = -answer;
        return -1;
    }
    return original(buffer, std::min<size_t>(size, static_cast<size_t>(answer)), flags);
}

namespace {

// Behaviours of: Keys and signatures

// Behaviour: Random bytes are as many as asked for and ...
TEST(RandomBytes, AreAsManyAsWereAskedForAndOthersEachTime) {
    EXPECT_EQ(str::Random(0), "");
    EXPECT_EQ(str::Random(300).size(), 300U);
    EXPECT_NE(str::Random(16), str::Random(16));
}

// Behaviour: Random bytes are as many as asked for and ...
TEST(RandomBytes, AreAskedForUntilAllAreThere) {
    errno = 0;
    answers = {3, 0, -EINTR, -EINTR, 4};
    asked.clear();
    const std::string bytes = str::Random(16);
    EXPECT_EQ(asked, (std::vector<std::pair<std::size_t, unsigned>>{
                         {16, 0}, {13, 0}, {13, 0}, {13, 0}, {13, 0}, {9, 0}}));
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(bytes.size(), 16U);
    EXPECT_NE(bytes.substr(0, 8), std::string(8, '\0'));
    EXPECT_NE(bytes.substr(8), std::string(8, '\0'));
}

// Behaviour: Random bytes that the system does not give are an error
TEST(RandomBytes, ThatTheSystemDoesNotGiveAreAnError) {
    answers = {3, -EIO};
    try {
        str::Random(16);
        FAIL();
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "random");
        EXPECT_STREQ(e.what(), "str: random: Input/output error");
    }
}

}  // namespace
