#include "zelvek/base/durable.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>

#include "unit/zelvek_parts/support.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/folder.h"

namespace {

namespace durable = zelvek::durable;
using zelvek::Folder;

/// Files cannot grow beyond so many bytes meanwhile, as on a full disk.
class SizeLimit {
public:
    explicit SizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    SizeLimit(const SizeLimit&) = delete;
    SizeLimit& operator=(const SizeLimit&) = delete;

private:
    rlimit before_{};
    sighandler_t handler_;
};

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: The private key is readable by its owner ...
TEST(DurableFile, NewOneIsNeverWiderThanItsMode) {
    const parts::TempFolder folder;
    Folder::At(folder.path()).WriteNew("secret", "x", 0600);
    EXPECT_EQ(parts::Mode(folder.path() / "secret"), 0600u);
    EXPECT_EQ(parts::Content(folder.path() / "secret"), "x");
}

// Behaviour: A new file is never written over a file or through a link that is there
TEST(DurableFile, NewOneDoesNotTouchWhatIsThere) {
    const parts::TempFolder folder;
    parts::Put(folder.path() / "there", "kept");
    std::filesystem::create_symlink("elsewhere", folder.path() / "link");
    EXPECT_EQ(parts::TypeOf([&] { Folder::At(folder.path()).WriteNew("there", "x", 0644); }), "io");
    EXPECT_EQ(parts::TypeOf([&] { Folder::At(folder.path()).WriteNew("link", "x", 0644); }), "io");
    EXPECT_EQ(parts::Content(folder.path() / "there"), "kept");
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "elsewhere"));
}

// Behaviour: A full disk or a killed run leaves the old ...
TEST(DurableFile, ReplacementThatDoesNotFitLeavesTheOldContent) {
    const parts::TempFolder folder;
    durable::Replace(folder.path() / "file", "old", 0644);
    parts::Failure failure;
    {
        const SizeLimit limit(1000);
        failure =
            parts::FailureOf([&] { durable::Replace(folder.path() / "file", std::string(5000, 'x'), 0644); });
    }
    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text, testing::HasSubstr("too large"));
    EXPECT_EQ(parts::Content(folder.path() / "file"), "old");
    EXPECT_THAT(parts::Entries(folder.path()), testing::ElementsAre("file"));
}

// Behaviour: Files that the service has open are not handed to its children
TEST(DurableFile, DescriptorsStayInThisProcess) {
    const parts::TempFolder folder;
    const zelvek::Descriptor opened = zelvek::Open(folder.path(), O_RDONLY);
    EXPECT_NE(fcntl(opened.get(), F_GETFD) & FD_CLOEXEC, 0);
}

// Behaviour: What killed services left of half-written files is removed, and nothing else
TEST(DurableFile, LeftoversAreRemoved) {
    const parts::TempFolder folder;
    for (const char* name : {".new-0123456789abcdef", ".new-0123456789abcdeg", ".new-0123", "file"})
        parts::Put(folder.path() / name, "x");
    durable::RemoveLeftovers(folder.path());
    EXPECT_THAT(parts::Entries(folder.path()),
                testing::ElementsAre(".new-0123", ".new-0123456789abcdeg", "file"));
}

// Behaviour: A file in a folder that is missing cannot be written: an error "io"
TEST(DurableFolder, MissingOneIsAnError) {
    const parts::TempFolder folder;
    EXPECT_EQ(parts::TypeOf([&] { durable::Replace(folder.path() / "missing" / "file", "x", 0644); }), "io");
}

}  // namespace
