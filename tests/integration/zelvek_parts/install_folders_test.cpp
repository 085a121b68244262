// The folders in which certificates are installed: what they are called, whose they are, who else may write
// there.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "integration/zelvek_parts/installation.h"
#include "zelvek/base/descriptor.h"

namespace {

namespace fs = std::filesystem;
using parts::Content;
using parts::Entries;
using parts::Failure;
using parts::Installation;
using parts::Mode;
using parts::Put;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using zelvek::install::Install;
using zelvek::install::Request;

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: Names that cannot be folders are refused; folders bear the ASCII form; links are not followed
TEST_F(Installation, NamesThatCannotBeFoldersAreRefused) {
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string(".hidden"), std::string("a/b"),
          std::string("../a"), std::string("a\0b", 3), std::string("a\nb"), std::string("\xff\xfe"),
          std::string(231, 'a')}) {
        Request request = RequestFor(pki_);
        request.certname = name;
        EXPECT_EQ(Try(request).type, "value") << name;
        if (name == "\xff\xfe") continue;  // a file system takes any bytes, a domain name does not
        request = RequestFor(pki_);
        request.user = name;
        EXPECT_EQ(Try(request).type, "value") << name;
    }
    EXPECT_FALSE(fs::exists(settings_.directory));
}

// Behaviour: Names that cannot be folders are refused ...
TEST_F(Installation, FoldersAreNamedByTheAsciiForm) {
    Request request = RequestFor(pki_);
    request.certname = "bücher.example";
    Install(settings_, request);
    EXPECT_EQ(Content(user_ / "xn--bcher-kva.example" / "cert.pem"), pki_.leaf.Pem());
    request.certname = "*.shop.example";
    Install(settings_, request);
    EXPECT_EQ(Content(user_ / "_wildcard.shop.example" / "cert.pem"), pki_.leaf.Pem());
    request.certname = "My shop (2); $(rm)";
    Install(settings_, request);
    EXPECT_EQ(Content(user_ / "My shop (2); $(rm)" / "cert.pem"), pki_.leaf.Pem());
}

// Behaviour: A place that no folder can have is an error "io" with path and reason
TEST_F(Installation, PlaceBelowAFileIsAnErrorWithPathAndReason) {
    Put(folder_.path() / "file", "");
    settings_.directory = folder_.path() / "file" / "certs";
    const Failure failure = Try(RequestFor(pki_));
    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text, AllOf(HasSubstr("file/certs"), HasSubstr("Not a directory")));
}

// Behaviour: A folder or file that somebody has put in the installation's place is kept, and the installation
//   fails
TEST_F(Installation, WhatIsNoLinkIsNotReplaced) {
    fs::create_directories(place_);
    Put(place_ / "by-hand.pem", "kept");
    EXPECT_EQ(Try(RequestFor(pki_)).type, "io");
    EXPECT_EQ(Content(place_ / "by-hand.pem"), "kept");
    EXPECT_THAT(Entries(user_), ElementsAre("shop.example"));

    fs::remove_all(place_);
    Put(place_, "kept");
    EXPECT_EQ(Try(RequestFor(pki_)).type, "io");
    EXPECT_EQ(Content(place_), "kept");
}

// Behaviour: Names that cannot be folders are refused ...
TEST_F(Installation, UserFolderThatIsALinkIsNotFollowed) {
    fs::create_directories(folder_.path() / "certs");
    fs::create_directory(folder_.path() / "victim");
    fs::create_symlink(folder_.path() / "victim", user_);
    EXPECT_EQ(Try(RequestFor(pki_)).type, "io");
    EXPECT_THAT(Entries(folder_.path() / "victim"), SizeIs(0));
}

class ForeignFolders : public Installation {
protected:
    static constexpr uid_t kSomebody = 12345;

    ForeignFolders() { fs::create_directories(user_); }

    void SetUp() override { ASSERT_EQ(geteuid(), 0u) << "only root can give a folder to somebody else"; }
};

// Behaviour: A certificate is not installed in a folder of a foreign owner, unless the set-up names that
// owner
TEST_F(ForeignFolders, OfUnnamedOwnersAreRefused) {
    ASSERT_EQ(chown(user_.c_str(), kSomebody, kSomebody), 0);
    const Failure failure = Try(RequestFor(pki_));
    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text,
                AllOf(HasSubstr(user_.string()), HasSubstr("12345"), HasSubstr("--certs-owner")));
    EXPECT_THAT(Entries(user_), SizeIs(0));
    settings_.owners.push_back(kSomebody);
    Install(settings_, RequestFor(pki_));
    ExpectInstalled(pki_);
    EXPECT_EQ(Mode(place_ / "privkey.pem"), 0600u);
}

// Behaviour: A certificate is not installed where everybody may write
TEST_F(ForeignFolders, OpenToEverybodyAreRefused) {
    for (const fs::path& folder : {user_, settings_.directory}) {
        ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
        EXPECT_EQ(Try(RequestFor(pki_)).type, "io") << folder;
        ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    }
    EXPECT_THAT(Entries(user_), SizeIs(0));
}

// Behaviour: The lock of the installations can be opened by the service's user alone, and is not waited for
// for
//   ever
TEST_F(Installation, LockIsOutOfReachOfOthers) {
    Install(settings_, RequestFor(pki_));
    EXPECT_EQ(Mode(settings_.directory / ".lock"), 0600u);
    // A lock on the folders themselves, which everybody can read, holds nothing up.
    for (const fs::path& folder : {settings_.directory, user_}) {
        const zelvek::Descriptor opened = zelvek::Open(folder, O_RDONLY | O_DIRECTORY);
        ASSERT_EQ(flock(opened.get(), LOCK_EX | LOCK_NB), 0);
        Install(settings_, RequestFor(pki_));
    }
}

// Behaviour: Folders are made with mode 0755 whatever the umask, those above them too
TEST_F(Installation, MissingFoldersAboveHaveTheirModeToo) {
    settings_.directory = folder_.path() / "a" / "b" / "certs";
    for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
        const mode_t before = umask(mask);
        const Failure failure = Try(RequestFor(pki_));
        umask(before);
        ASSERT_EQ(failure.type, "none") << failure.text;
        for (const char* made : {"a", "a/b", "a/b/certs", "a/b/certs/alice"})
            EXPECT_EQ(Mode(folder_.path() / made), 0755u) << made;
        fs::remove_all(folder_.path() / "a");
    }
}

}  // namespace
