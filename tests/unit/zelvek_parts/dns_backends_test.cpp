#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "unit/zelvek_parts/support.h"
#include "zelvek/publishing/dns_backends.h"

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
    std::unique_ptr<Backend> Open() const { return MakeBackend({{"dns-records-file", file_}}); }

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

using Zones = std::vector<std::string>;

class UpdateSettings : public testing::Test {
protected:
    UpdateSettings() {
        good_["dns-server"] = "ns.example.org";
        good_["dns-key-file"] = key_file_;
        good_["dns-zone"] = Zones{"example.org", "Bücher.example."};
        WriteKey("key \"update\" {\n\talgorithm hmac-sha256;\n\tsecret \"" + secret_ + "\";\n};\n");
    }

    void WriteKey(const std::string& content) const {
        Put(key_file_, content);
        chmod(key_file_.c_str(), 0600);
    }

    void ExpectRefused(const std::string& option, const zelvek::dns::OptionValue& value,
                       const std::string& why) {
        good_[option] = value;
        ExpectRefused(why);
    }

    void ExpectRefused(const std::string& why) const {
        const Failure failure = FailureOf([&] { MakeBackend(good_); });
        EXPECT_EQ(failure.type, "value");
        EXPECT_THAT(failure.text, HasSubstr(why));
        EXPECT_THAT(failure.text, Not(HasSubstr(secret_)));
    }

    TempFolder folder_;
    std::string key_file_ = folder_.path() / "key";
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

/// A back end of a kind that the service does not know, and what it was made of.
class Notes : public Backend {
public:
    static std::unique_ptr<Backend> Make(const Settings& settings) {
        made_of = settings;
        return std::make_unique<Notes>();
    }
    bool Serves(const std::string& zone) const override { return zone == "notes"; }
    void AddTxt(const std::string&, const std::string&, const std::string&) override {}
    void RemoveTxt(const std::string&, const std::string&, const std::string&) override {}

    static Settings made_of;
};

Settings Notes::made_of;

// Behaviour: A DNS back end is made by its entry in the list of kinds, with its options and their ranges
TEST(BackendKinds, AreAllMadeByTheListAlone) {
    auto kinds = zelvek::dns::BackendKinds();
    kinds.push_back(
        {"a notebook",
         {{"notes", "Where", std::string()}, {"pages", "How many", 7, 1, 9}, {"pens", "", 2, 1, 3}},
         &Notes::Make});
    const auto backend = MakeBackend({{"notes", "here"}, {"pages", 8}, {"dns-ttl", 5}}, kinds);
    ASSERT_NE(backend, nullptr);
    EXPECT_TRUE(backend->Serves("notes"));
    EXPECT_EQ(Notes::made_of, (Settings{{"notes", "here"}, {"pages", 8}, {"pens", 2}}));
    const Failure both = FailureOf([&] {
        MakeBackend({{"notes", "here"}, {"dns-records-file", "there"}}, kinds);
    });
    EXPECT_EQ(both.type, "value");
    EXPECT_EQ(both.text, "a file of records and a notebook exclude each other");
}

// Behaviour: Each DNS back end has options of its own, and is selected by the first one
TEST(BackendKinds, HaveOptionsOfTheirOwnAndAreSelectedByATextThatIsEmptyAtFirst) {
    std::vector<std::string> names;
    for (const auto& kind : zelvek::dns::BackendKinds()) {
        EXPECT_EQ(kind.options.front().standard, zelvek::dns::OptionValue(std::string()));
        for (const auto& option : kind.options) names.push_back(option.name);
    }
    EXPECT_THAT(names, testing::ElementsAre("dns-server", "dns-port", "dns-key-file", "dns-zone", "dns-ttl",
                                            "dns-records-file", "dns-command", "dns-command-zone",
                                            "dns-command-ttl", "dns-command-timeout"));
    EXPECT_EQ(zelvek::dns::SelectingOptions(), "--dns-server or --dns-records-file or --dns-command");
}

// Behaviour: Wrong settings of the back end are refused with their reason
TEST_F(UpdateSettings, ServerAndFileExcludeEachOther) {
    ExpectRefused("dns-records-file", (folder_.path() / "records").string(),
                  "a DNS server and a file of records exclude each other");
    good_.erase("dns-records-file");
    ExpectRefused("dns-command", "/bin/true", "a DNS server and a DNS command exclude each other");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, ServerMustBeAHostName) {
    for (const char* server : {"-x", "a b", "a;id", "a\nb", "$(id)", "a/b", "@a"}) {
        ExpectRefused("dns-server", server, "host name");
    }
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, NumbersHaveTheirRanges) {
    for (const int port : {0, -1, 65536}) {
        ExpectRefused("dns-port", port, "dns-port is no number from 1 to 65535");
    }
    good_["dns-port"] = 65535;
    for (const int ttl : {-1, 86401}) ExpectRefused("dns-ttl", ttl, "dns-ttl is no number from 0 to 86400");
    good_["dns-ttl"] = 0;
    EXPECT_EQ(TypeOf([&] { MakeBackend(good_); }), "none");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, ZonesAreNeededAndMustBeNames) {
    ExpectRefused("dns-zone", Zones{}, "no zone");
    ExpectRefused("dns-zone", Zones{"a b"}, "a b");
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(UpdateSettings, KeyFileMustBeThere) {
    ExpectRefused("dns-key-file", "", "key file");
    ExpectRefused("dns-key-file", (folder_.path() / "missing").string(), "No such file");
    ExpectRefused("dns-key-file", folder_.path().string(), "no file");
}

// Behaviour: The key's file must be the owner's alone, at every use
TEST_F(UpdateSettings, KeyFileMustBeTheOwnersAlone) {
    for (const mode_t mode : {0640, 0604, 0620, 0601}) {
        chmod(key_file_.c_str(), mode);
        ExpectRefused("owner alone");
    }
}

// Behaviour: The key's file must be the owner's alone ...
TEST_F(UpdateSettings, KeyFileOfAnotherUserIsRefused) {
    // Root can give the file away; anybody else finds a file of root's on every system.
    if (chown(key_file_.c_str(), 65534, 65534) != 0) good_["dns-key-file"] = "/etc/hostname";
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
