#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "unit/zelvek_parts/support.h"
#include "zelvek/publishing/dns_backend.h"

namespace {

using parts::Content;
using parts::Failure;
using parts::FailureOf;
using parts::Put;
using parts::TempFolder;
using parts::TypeOf;
using testing::HasSubstr;
using testing::Not;
using zelvek::dns::Backend;
using zelvek::dns::MakeBackend;
using zelvek::dns::Settings;

const std::string kName = "_acme-challenge.example.org.";

class RecordsFile : public testing::Test {
protected:
    std::unique_ptr<Backend> Open() const {
        Settings settings;
        settings.records_file = file_;
        return MakeBackend(settings);
    }

    TempFolder folder_;
    std::string file_ = folder_.path() / "records";
};

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A records file keeps, tells and removes values likewise, and leaves the lines of others alone
TEST_F(RecordsFile, KeepsSeveralValuesOfAName) {
    const auto records = Open();
    records->AddTxt("example.org", kName, "one");
    records->AddTxt("example.org", kName, "two words");
    EXPECT_EQ(
        Content(file_),
        "example.org _acme-challenge.example.org one\nexample.org _acme-challenge.example.org two words\n");
}

// Behaviour: A records file keeps, tells and removes values ...
TEST_F(RecordsFile, SaysWhatIsThereAlreadyEvenAfterARestart) {
    Open()->AddTxt("example.org", kName, "one");
    EXPECT_EQ(TypeOf([&] { Open()->AddTxt("Example.ORG.", "_ACME-challenge.example.org", "one"); }),
              "exists");
    EXPECT_EQ(TypeOf([&] { Open()->AddTxt("example.org", kName, "on"); }), "none");
    EXPECT_EQ(TypeOf([&] { Open()->AddTxt("example.org", kName, "ONE"); }), "none");
}

// Behaviour: A records file keeps, tells and removes values ...
TEST_F(RecordsFile, RemovesJustOneValue) {
    const auto records = Open();
    records->AddTxt("example.org", kName, "one");
    records->AddTxt("example.org", kName, "two");
    records->RemoveTxt("example.org", kName, "one");
    EXPECT_EQ(Content(file_), "example.org _acme-challenge.example.org two\n");
    EXPECT_EQ(TypeOf([&] { records->RemoveTxt("example.org", kName, "one"); }), "none");
    EXPECT_EQ(TypeOf([&] { records->RemoveTxt("example.org", "other.example.", "one"); }), "none");
}

// Behaviour: Removing a record before any was added makes no records file
TEST_F(RecordsFile, RemovingBeforeAnythingWasAddedMakesNoFile) {
    Open()->RemoveTxt("example.org", kName, "one");
    EXPECT_FALSE(std::filesystem::exists(file_));
}

// Behaviour: A records file keeps, tells and removes values ...
TEST_F(RecordsFile, LinesOfOthersStay) {
    Put(file_, "# by hand\nexample.org a.example.org x");  // without final line feed
    Open()->AddTxt("example.org", kName, "one");
    EXPECT_EQ(Content(file_),
              "# by hand\nexample.org a.example.org x\nexample.org _acme-challenge.example.org one\n");
}

// Behaviour: A records file serves every zone
TEST_F(RecordsFile, ServesEveryZone) {
    EXPECT_TRUE(Open()->Serves("example.org"));
    EXPECT_FALSE(Open()->Serves(""));
}

// Behaviour: A records file keeps, tells and removes values ...
TEST_F(RecordsFile, RefusesRecordsThatWouldBeOtherLines) {
    EXPECT_EQ(TypeOf([&] { Open()->AddTxt("example.org", kName, "a\nexample.org b.example.org c"); }),
              "value");
    EXPECT_EQ(TypeOf([&] { Open()->AddTxt("example.org", "other.example", "a"); }), "value");
    EXPECT_FALSE(std::filesystem::exists(file_));
}

// Behaviour: A records file that cannot be written is an error "dns" with its path
TEST_F(RecordsFile, UnwritablePlaceIsADnsErrorWithItsPath) {
    const auto records = Open();
    std::filesystem::create_directory(file_);
    const Failure failure = FailureOf([&] { records->AddTxt("example.org", kName, "one"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, HasSubstr(file_));
}

// Behaviour: Threads may add and remove records at once ...
TEST_F(RecordsFile, TwoThreadsLoseNoRecord) {
    const auto records = Open();
    const auto add = [&](const std::string& prefix) {
        for (int i = 0; i < 20; ++i) records->AddTxt("example.org", kName, prefix + std::to_string(i));
    };
    std::thread other(add, "a");
    add("b");
    other.join();
    const std::string content = Content(file_);
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 40);
}

class UpdateSettings : public testing::Test {
protected:
    UpdateSettings() {
        good_.server = "ns.example.org";
        good_.key_file = folder_.path() / "key";
        good_.zones = {"example.org", "Bücher.example."};
        WriteKey("key \"update\" {\n\talgorithm hmac-sha256;\n\tsecret \"" + secret_ + "\";\n};\n");
    }

    void WriteKey(const std::string& content) const {
        Put(good_.key_file, content);
        chmod(good_.key_file.c_str(), 0600);
    }

    void ExpectRefused(const std::string& why) const {
        const Failure failure = FailureOf([&] { MakeBackend(good_); });
        EXPECT_EQ(failure.type, "value");
        EXPECT_THAT(failure.text, HasSubstr(why));
        EXPECT_THAT(failure.text, Not(HasSubstr(secret_)));
    }

    TempFolder folder_;
    std::string secret_ = "KcpIs2f7B22NFlib3Un5+MOTfQ+0jBNVsl1zm601Y1s=";
    Settings good_;
};

// Behaviour: An update server serves the zones of its settings, in their ASCII form, and no others
TEST_F(UpdateSettings, ServeTheirZonesInCanonicalForm) {
    const auto backend = MakeBackend(good_);
    EXPECT_TRUE(backend->Serves("example.org"));
    EXPECT_TRUE(backend->Serves("xn--bcher-kva.example"));
    EXPECT_FALSE(backend->Serves("www.example.org"));
    EXPECT_FALSE(backend->Serves(""));
}

// Behaviour: Without an update server and a records file there is nothing to publish records with
TEST_F(UpdateSettings, WithoutServerAndFileThereIsNoBackend) { EXPECT_EQ(MakeBackend(Settings{}), nullptr); }

// Behaviour: Wrong settings of the back end are refused with their reason
TEST_F(UpdateSettings, ServerAndFileExcludeEachOther) {
    good_.records_file = folder_.path() / "records";
    ExpectRefused("exclude");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, ServerMustBeAHostName) {
    for (const char* server : {"-x", "a b", "a;id", "a\nb", "$(id)", "a/b", "@a"}) {
        good_.server = server;
        ExpectRefused("host name");
    }
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, NumbersHaveTheirRanges) {
    for (const int port : {0, -1, 65536}) {
        good_.port = port;
        ExpectRefused("port");
    }
    good_.port = 53;
    good_.ttl = -1;
    ExpectRefused("TTL");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, ZonesAreNeededAndMustBeNames) {
    good_.zones = {};
    ExpectRefused("no zone");
    good_.zones = {"a b"};
    ExpectRefused("a b");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, KeyFileMustBeThere) {
    good_.key_file = "";
    ExpectRefused("key file");
    good_.key_file = folder_.path() / "missing";
    ExpectRefused("No such file");
    good_.key_file = folder_.path();
    ExpectRefused("no file");
}

// Behaviour: The key's file must be the owner's alone, at every use
TEST_F(UpdateSettings, KeyFileMustBeTheOwnersAlone) {
    for (const mode_t mode : {0640, 0604, 0620, 0601}) {
        chmod(good_.key_file.c_str(), mode);
        ExpectRefused("owner alone");
    }
}

// Behaviour: The key's file must be the owner's alone ...
TEST_F(UpdateSettings, KeyFileOfAnotherUserIsRefused) {
    // Root can give the file away; anybody else finds a file of root's on every system.
    if (chown(good_.key_file.c_str(), 65534, 65534) != 0) good_.key_file = "/etc/hostname";
    ExpectRefused("does not belong");
}

// Behaviour: No error tells the key's secret ...
// The tools would quote from such files in their messages.
TEST_F(UpdateSettings, KeyFileOfAnotherFormIsRefused) {
    for (const std::string& content :
         {std::string(), secret_, "hmac-sha256:update:" + secret_,
          "key update { secret \"" + secret_ + "\"; };",
          "key \"update\" { algorithm hmac-sha256; secret \"" + secret_ + "\"; }; options { };",
          "key \"update\" { algorithm hmac-sha256; secret \"" + secret_ + "\"; "}) {
        WriteKey(content);
        ExpectRefused("tsig-keygen");
    }
    WriteKey(std::string(5000, ' '));
    ExpectRefused("no file with a key");
}

// Behaviour: A key file may be written on one line, with no more blanks than its words need
TEST_F(UpdateSettings, KeyFileMayBeWrittenTightly) {
    WriteKey("key update{algorithm hmac-sha512;secret " + secret_ + ";};");
    EXPECT_EQ(TypeOf([&] { MakeBackend(good_); }), "none");
}

}  // namespace
