#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "integration/zelvek_parts/installation.h"

namespace {

namespace fs = std::filesystem;
using parts::Content;
using parts::Entries;
using parts::Failure;
using parts::FailureOf;
using parts::Hierarchy;
using parts::Installation;
using parts::Mode;
using parts::Put;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using zelvek::install::Install;
using zelvek::install::Request;

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: A certificate is installed as four files behind one link, so that readers always find matching
//   ones
TEST_F(Installation, PutsFourFilesBehindALink) {
    Install(settings_, RequestFor(pki_));
    ExpectInstalled(pki_);
    ASSERT_TRUE(fs::is_symlink(place_));
    EXPECT_TRUE(fs::read_symlink(place_).is_relative());
    EXPECT_THAT(Entries(place_), ElementsAre("cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"));
}

// Behaviour: The private key is readable by its owner alone, whatever the umask
TEST_F(Installation, ModesDoNotDependOnTheUmask) {
    for (const mode_t mask : {0, 022, 0777}) {
        const mode_t before = umask(mask);
        const Failure failure = Try(RequestFor(pki_));
        umask(before);
        ASSERT_EQ(failure.type, "none") << failure.text;
        EXPECT_EQ(Mode(place_ / "privkey.pem"), 0600u);
        EXPECT_EQ(Mode(place_ / "fullchain.pem"), 0644u);
        EXPECT_EQ(Mode(user_), 0755u);
        EXPECT_EQ(Mode(user_ / fs::read_symlink(place_)), 0755u);
    }
}

// Behaviour: A tree of installations can be moved as a whole: its links are relative
TEST_F(Installation, TreeCanBeMoved) {
    Install(settings_, RequestFor(pki_));
    fs::rename(folder_.path() / "certs", folder_.path() / "moved");
    EXPECT_EQ(Content(folder_.path() / "moved" / "alice" / "shop.example" / "cert.pem"), pki_.leaf.Pem());
}

// Behaviour: The previous installation is kept, older ones are removed
TEST_F(Installation, KeepsThePreviousFolderAndRemovesOlderOnes) {
    Install(settings_, RequestFor(pki_));
    const fs::path first = fs::read_symlink(place_);
    Install(settings_, RequestFor(Hierarchy()));
    const fs::path second = fs::read_symlink(place_);
    EXPECT_EQ(Content(user_ / first / "cert.pem"), pki_.leaf.Pem());
    const Hierarchy newest;
    Install(settings_, RequestFor(newest));
    ExpectInstalled(newest);
    EXPECT_FALSE(fs::exists(user_ / first));
    EXPECT_TRUE(fs::exists(user_ / second));
    EXPECT_THAT(Entries(user_), SizeIs(3));
}

// Behaviour: A full disk or a killed run leaves the old ...
TEST_F(Installation, RemovesWhatAKilledRunLeftOfTheSameNameOnly) {
    fs::create_directories(user_ / ".shop.example.0123abcd");
    Put(user_ / ".shop.example.0123abcd" / "privkey.pem", "half a k");
    fs::create_symlink(".shop.example.0123abcd", user_ / ".shop.example.0123abcd.link");
    const std::vector<std::string> others{".other.example.0123abcd", ".shop.example.0123abcg",
                                          ".shop.example.www.0123abcd", ".shop.example.0123abcd.linked",
                                          "notes"};
    for (const std::string& other : others) fs::create_directory(user_ / other);
    Install(settings_, RequestFor(pki_));
    EXPECT_FALSE(fs::exists(user_ / ".shop.example.0123abcd"));
    EXPECT_FALSE(fs::is_symlink(user_ / ".shop.example.0123abcd.link"));
    for (const std::string& other : others) EXPECT_TRUE(fs::exists(user_ / other)) << other;
    ExpectInstalled(pki_);
}

// Behaviour: Names that cannot be folders are refused ...
TEST_F(Installation, LeftoversThatAreLinksAreNotFollowed) {
    fs::create_directories(user_);
    fs::create_directory(folder_.path() / "victim");
    Put(folder_.path() / "victim" / "file", "kept");
    fs::create_symlink(folder_.path() / "victim", user_ / ".shop.example.0123abcd");
    Install(settings_, RequestFor(pki_));
    EXPECT_FALSE(fs::is_symlink(user_ / ".shop.example.0123abcd"));
    EXPECT_EQ(Content(folder_.path() / "victim" / "file"), "kept");
}

// Behaviour: A certificate is installed as four files ...
TEST_F(Installation, ReadersAlwaysFindMatchingFiles) {
    const Hierarchy other;
    const std::map<std::string, std::string> keys{{pki_.leaf.Pem(), pki_.leaf.KeyPem()},
                                                  {other.leaf.Pem(), other.leaf.KeyPem()}};
    Install(settings_, RequestFor(pki_));
    std::atomic<bool> done{false};
    std::thread installer([&] {
        for (int i = 0; i < 30; ++i) Install(settings_, RequestFor(i % 2 == 0 ? other : pki_));
        done = true;
    });
    int wrong = 0;
    int seen = 0;
    while (!done) {
        // As a server does that resolves the link once. The folder may only be gone when two more came
        // meanwhile.
        std::error_code missing;
        const fs::path folder = user_ / fs::read_symlink(place_, missing);
        if (missing) ++wrong;
        const std::string certificate = Content(folder / "cert.pem");
        const std::string key = Content(folder / "privkey.pem");
        if (certificate == "(unreadable)" || key == "(unreadable)") continue;
        const auto expected = keys.find(certificate);
        if (expected == keys.end() || expected->second != key) ++wrong;
        ++seen;
    }
    installer.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(seen, 0);
}

// Behaviour: A certificate is installed as four files ...
TEST_F(Installation, SeveralAtOnceLeaveOneWholeInstallation) {
    std::vector<std::thread> installers(4);
    std::atomic<int> failures{0};
    for (std::thread& installer : installers) {
        installer = std::thread([&] {
            for (int round = 0; round < 5; ++round) failures += Try(RequestFor(pki_)).type != "none" ? 1 : 0;
        });
    }
    for (std::thread& installer : installers) installer.join();
    EXPECT_EQ(failures, 0);
    ExpectInstalled(pki_);
    EXPECT_THAT(Entries(user_), SizeIs(3));
}

// Behaviour: Key, certificate and chain that do not belong ...
TEST_F(Installation, WrongKeyOrChainChangesNothing) {
    Install(settings_, RequestFor(pki_));
    const std::vector<std::string> before = Entries(user_);
    const Hierarchy other;

    Request wrong_key = RequestFor(pki_);
    wrong_key.key = other.leaf.KeyPem();
    const Failure failure = Try(wrong_key);
    EXPECT_EQ(failure.type, "badkey");
    EXPECT_THAT(
        failure.text,
        testing::StrEq(
            "installing the certificate of shop.example: key and certificate do not belong together"));

    Request foreign = RequestFor(pki_);
    foreign.certificates += other.root.Pem();
    EXPECT_EQ(Try(foreign).type, "badchain");
    ExpectInstalled(pki_);
    EXPECT_EQ(Entries(user_), before);
}

// Behaviour: A full disk or a killed run leaves the old installation whole
// The key fits, the chain does not: the failure comes when the staging folder is half filled.
TEST_F(Installation, FullDiskLeavesTheOldInstallationAndNoStaging) {
    Install(settings_, RequestFor(pki_));
    const std::vector<std::string> before = Entries(user_);
    Request request = RequestFor(Hierarchy());

    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{request.key.size() + 10, unlimited.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const Failure failure = Try(request);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    std::signal(SIGXFSZ, handler);

    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text, AllOf(HasSubstr("cert.pem"), HasSubstr("too large")));
    ExpectInstalled(pki_);
    EXPECT_EQ(Entries(user_), before);
}

// Behaviour: A certificate that lacks one of the names that it is for is refused as "badnames" with those
// that
//   are missing, and nothing changes
TEST_F(Installation, CertificateThatLacksNamesIsRefused) {
    Install(settings_, RequestFor(pki_));
    const Hierarchy other;
    Request request = RequestFor(other);
    request.names = {"shop.example", "www.shop.example", "*.shop.example"};
    const Failure failure = Try(request);
    EXPECT_EQ(failure.type, "badnames");
    EXPECT_THAT(failure.text, HasSubstr(": www.shop.example, *.shop.example missing"));
    ExpectInstalled(pki_);
    request.names = {"shop.example"};
    Install(settings_, request);
    ExpectInstalled(other);
}

// Behaviour: A wildcard in a certificate stands for names of one more label
TEST_F(Installation, WildcardCoversNamesOfOneMoreLabel) {
    const Hierarchy wildcard(parts::KeyKind::kEc, "*.Shop.example");
    Request request = RequestFor(wildcard);
    request.names = {"*.shop.example", "www.shop.example"};
    EXPECT_EQ(Try(request).type, "none");
    for (const char* name : {"shop.example", "a.b.shop.example", "xshop.example"}) {
        request.names = {name};
        EXPECT_EQ(Try(request).type, "badnames") << name;
    }
}

// Behaviour: What killed services left of installations is removed when the service starts; what is
// installed,
//   and the installation before, stay
TEST_F(Installation, LeftoversOfAllCertificatesAreRemoved) {
    Install(settings_, RequestFor(pki_));
    const fs::path first = user_ / fs::read_symlink(place_);
    Install(settings_, RequestFor(pki_));
    fs::create_directories(settings_.directory / "bob" / ".blog.example.0123abcd");
    Put(settings_.directory / "bob" / ".blog.example.0123abcd" / "privkey.pem", "half a k");
    fs::permissions(settings_.directory / "bob" / ".blog.example.0123abcd", fs::perms{0700});
    fs::create_symlink(".shop.example.0123abcd", user_ / ".shop.example.0123abcd.link");
    fs::create_directory(user_ / "notes");
    Put(settings_.directory / "a file", "");
    zelvek::install::RemoveLeftovers(settings_);
    ExpectInstalled(pki_);
    EXPECT_TRUE(fs::exists(first));
    EXPECT_TRUE(fs::exists(user_ / "notes"));
    EXPECT_THAT(Entries(user_), SizeIs(4));
    EXPECT_THAT(Entries(settings_.directory / "bob"), SizeIs(0));
}

// Behaviour: An installed certificate is removed with all that its installations have made, and nothing else
TEST_F(Installation, IsRemovedWithAllItsFolders) {
    EXPECT_FALSE(zelvek::install::Remove(settings_, "alice", "shop.example"));
    EXPECT_FALSE(fs::exists(user_));
    Install(settings_, RequestFor(pki_));
    Install(settings_, RequestFor(pki_));
    Request other = RequestFor(pki_);
    other.certname = "b.shop.example";
    Install(settings_, other);
    Put(user_ / "notes", "mine");
    EXPECT_TRUE(zelvek::install::Remove(settings_, "alice", "shop.example"));
    EXPECT_THAT(Entries(user_), SizeIs(3)) << "the other certificate's link and folder, and the notes";
    EXPECT_EQ(Content(user_ / "b.shop.example" / "cert.pem"), pki_.leaf.Pem());
    EXPECT_FALSE(zelvek::install::Remove(settings_, "alice", "shop.example"));
}

// Behaviour: What is no installation stays when a certificate is removed, and nothing that a link leads to is
//   touched
TEST_F(Installation, WhatIsNoneStaysWhenACertificateIsRemoved) {
    const auto refusal = [&] {
        return FailureOf([&] { zelvek::install::Remove(settings_, "alice", "shop.example"); }).code;
    };
    const fs::path elsewhere = folder_.path() / "elsewhere";
    fs::create_directories(elsewhere);
    fs::create_directories(user_);
    Put(elsewhere / "cert.pem", "somebody's");
    for (const fs::path& target :
         {elsewhere, fs::path("../../elsewhere"), fs::path(".other.example.0123abcd"), fs::path("/")}) {
        fs::create_symlink(target, place_);
        EXPECT_EQ(refusal(), zelvek::Code::kIo) << target;
        EXPECT_TRUE(fs::is_symlink(place_));
        fs::remove(place_);
    }
    fs::create_directory(place_);
    Put(place_ / "cert.pem", "somebody's");
    EXPECT_EQ(refusal(), zelvek::Code::kIo);
    EXPECT_EQ(Content(place_ / "cert.pem"), "somebody's");
    fs::remove_all(place_);
    // In the place of an installation's folder.
    fs::create_symlink(elsewhere, user_ / ".shop.example.0123abcd");
    fs::create_symlink(".shop.example.0123abcd", place_);
    EXPECT_TRUE(zelvek::install::Remove(settings_, "alice", "shop.example"));
    EXPECT_TRUE(Entries(user_).empty());
    EXPECT_EQ(Content(elsewhere / "cert.pem"), "somebody's");
    fs::remove_all(user_);
    fs::create_symlink(elsewhere, user_);
    EXPECT_EQ(refusal(), zelvek::Code::kIo) << "the user's folder";
    EXPECT_EQ(FailureOf([&] { zelvek::install::Remove(settings_, "..", "x"); }).code, zelvek::Code::kValue);
    EXPECT_EQ(FailureOf([&] { zelvek::install::Remove(settings_, "alice", "../x"); }).code,
              zelvek::Code::kValue);
}

}  // namespace
