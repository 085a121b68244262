#include "zelvek/publishing/answers.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "unit/zelvek_parts/support.h"

namespace {

using parts::Content;
using parts::Entries;
using parts::Mode;
using parts::Put;
using parts::TempFolder;
using parts::TypeOf;
using testing::ElementsAre;
using testing::IsEmpty;
using zelvek::answers::Create;
using zelvek::answers::IsToken;
using zelvek::answers::Remove;

const std::string kToken = "evaGxfADs6pSRb2LAv9IZf17Dt3juxGJ-PCt92wr_oA";

// Behaviours of: Answer files (ambrin_challenge)

// Behaviour: A token is of letters, digits, "-" and "_", at most 255; anything else never reaches the file
//   system
TEST(Token, IsOfTheAlphabetAlone) {
    EXPECT_TRUE(IsToken(kToken));
    EXPECT_TRUE(IsToken("a"));
    EXPECT_TRUE(IsToken(std::string(255, 'a')));
    for (const char* text :
         {"", ".", "..", ".a", "a.b", "a/b", "/a", "../a", "a b", "a\n", "a%2f", "a+b", "a=", "\xc3\xa9"}) {
        EXPECT_FALSE(IsToken(text)) << text;
    }
    EXPECT_FALSE(IsToken(std::string(256, 'a')));
    EXPECT_FALSE(IsToken(std::string("a\0b", 3)));
}

// Behaviour: An answer file is readable by everyone, whatever the umask
TEST(AnswerFile, HoldsTheContentAndIsReadableByEveryone) {
    const TempFolder folder;
    const mode_t before = umask(077);
    Create(folder.path(), kToken, "content");
    umask(before);
    EXPECT_EQ(Content(folder.path() / kToken), "content");
    EXPECT_EQ(Mode(folder.path() / kToken), 0644u);
    EXPECT_THAT(Entries(folder.path()), ElementsAre(kToken));
}

// Behaviour: A token is of letters, digits, "-" and "_" ...
TEST(AnswerFile, CanHaveTheLongestName) {
    const TempFolder folder;
    const std::string token(255, 'x');
    Create(folder.path(), token, "content");
    EXPECT_EQ(Content(folder.path() / token), "content");
    Remove(folder.path(), token);
    EXPECT_THAT(Entries(folder.path()), IsEmpty());
}

// Behaviour: A token is of letters, digits, "-" and "_" ...
TEST(AnswerFile, NoTokenNeverReachesTheFileSystem) {
    const TempFolder folder;
    Put(folder.path() / "kept", "kept");
    std::filesystem::create_directory(folder.path() / "answers");
    for (const char* name : {"../kept", "..", "", "a/b", ".hidden"}) {
        EXPECT_EQ(TypeOf([&] { Create(folder.path() / "answers", name, "x"); }), "value") << name;
        EXPECT_EQ(TypeOf([&] { Remove(folder.path() / "answers", name); }), "value") << name;
    }
    EXPECT_EQ(Content(folder.path() / "kept"), "kept");
    EXPECT_THAT(Entries(folder.path() / "answers"), IsEmpty());
}

// Behaviour: A planted link is replaced, never followed
TEST(AnswerFile, ReplacesAPlantedLinkInsteadOfFollowingIt) {
    const TempFolder folder;
    Put(folder.path() / "victim", "untouched");
    std::filesystem::create_symlink(folder.path() / "victim", folder.path() / kToken);
    Create(folder.path(), kToken, "answer");
    EXPECT_EQ(Content(folder.path() / "victim"), "untouched");
    EXPECT_FALSE(std::filesystem::is_symlink(folder.path() / kToken));
    EXPECT_EQ(Content(folder.path() / kToken), "answer");
}

// Behaviour: A planted link is replaced, never followed ...
TEST(AnswerFile, RemovingAPlantedLinkLeavesItsTarget) {
    const TempFolder folder;
    Put(folder.path() / "victim", "untouched");
    std::filesystem::create_symlink(folder.path() / "victim", folder.path() / kToken);
    Remove(folder.path(), kToken);
    EXPECT_THAT(Entries(folder.path()), ElementsAre("victim"));
}

// Behaviour: An answer file is named by its token and holds the content; creating it again replaces it,
//   removing a missing one succeeds
TEST(AnswerFile, RemovingWhatIsNotThereSucceeds) {
    const TempFolder folder;
    EXPECT_EQ(TypeOf([&] { Remove(folder.path(), kToken); }), "none");
    EXPECT_EQ(TypeOf([&] { Remove(folder.path() / "missing", kToken); }), "none");
}

// Behaviour: A file that cannot be written is an error "io" that names it, and leaves nothing behind
TEST(AnswerFile, FailureLeavesNothingBehindAndNamesThePath) {
    const TempFolder folder;
    std::filesystem::create_directory(folder.path() / kToken);
    const parts::Failure failure = parts::FailureOf([&] { Create(folder.path(), kToken, "x"); });
    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text, testing::HasSubstr((folder.path() / kToken).string()));
    EXPECT_THAT(Entries(folder.path()), ElementsAre(kToken));
    EXPECT_EQ(TypeOf([&] { Remove(folder.path(), kToken); }), "io");
    EXPECT_EQ(TypeOf([&] { Create(folder.path() / "missing", kToken, "x"); }), "io");
}

// Behaviour: Readers see one whole content or the other
TEST(AnswerFile, ReadersSeeOneWholeContentOrTheOther) {
    const TempFolder folder;
    const std::string first(20'000, 'a');
    const std::string second(10'000, 'b');
    Create(folder.path(), kToken, first);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 50; ++i) Create(folder.path(), kToken, i % 2 == 0 ? second : first);
        done = true;
    });
    int torn = 0;
    while (!done) {
        const std::string seen = Content(folder.path() / kToken);
        if (seen != first && seen != second) ++torn;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
