// Dynamic updates of each name server that the service is tried against.
#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <thread>

#include "integration/zelvek_parts/name_server.h"
#include "zelvek/publishing/dns_backends.h"

namespace {

using parts::Failure;
using parts::FailureOf;
using parts::Make;
using parts::NameServer;
using parts::TypeOf;
using testing::AllOf;
using testing::HasSubstr;
using zelvek::dns::Backend;
using zelvek::dns::MakeBackend;
using zelvek::dns::Settings;

const std::string kOwnZone = "example.test";

/// One server of each make for all tests; each uses a name of its own.
class UpdatesOf : public testing::TestWithParam<Make> {
protected:
    static void TearDownTestSuite() { servers_.clear(); }

    static NameServer& Server() {
        std::unique_ptr<NameServer>& server = servers_[GetParam()];
        if (!server) server = std::make_unique<NameServer>(GetParam());
        return *server;
    }

    static Settings Good() {
        return {{"dns-server", "127.0.0.1"},
                {"dns-port", Server().port()},
                {"dns-key-file", Server().key()},
                {"dns-zone", std::vector<std::string>{kOwnZone, "static.test", "elsewhere.test"}},
                {"dns-ttl", 17}};
    }

    static std::string Address() { return "127.0.0.1:" + std::to_string(Server().port()); }

    static std::map<Make, std::unique_ptr<NameServer>> servers_;
    std::unique_ptr<Backend> backend_ = MakeBackend(Good());
};

std::map<Make, std::unique_ptr<NameServer>> UpdatesOf::servers_;

std::string NameOf(const testing::TestParamInfo<Make>& server) {
    switch (server.param) {
        case Make::kBind: return "Bind";
        case Make::kKnot: return "Knot";
        default: return "PowerDns";
    }
}

INSTANTIATE_TEST_SUITE_P(Servers, UpdatesOf, testing::Values(Make::kBind, Make::kKnot, Make::kPowerDns),
                         NameOf);

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A dynamic update adds a value with its time to live, beside others, and removes just that value,
//   at BIND, Knot and PowerDNS alike
TEST_P(UpdatesOf, AddsAValueWithItsTimeToLive) {
    backend_->AddTxt(kOwnZone, "_acme-challenge.add.example.test.", "value-1_A");
    EXPECT_EQ(Server().Txt("_acme-challenge.add.example.test"), "\"value-1_A\"\n");
    EXPECT_EQ(Server().Ttl("_acme-challenge.add.example.test"), "17");
}

// Behaviour: How long others remember that a record was not there is asked of the zone's own server: the
// smaller
//   of its SOA record's time and that record's last field
TEST_P(UpdatesOf, KnowsTheZonesNegativeCachingTime) {
    EXPECT_EQ(backend_->NegativeTtl(kOwnZone), std::chrono::seconds{45});
    EXPECT_THROW(backend_->NegativeTtl("elsewhere.test"), zelvek::Error);
}

// Behaviour: A dynamic update adds a value with its time ...
TEST_P(UpdatesOf, KeepsSeveralValuesOfAName) {
    const std::string name = "_acme-challenge.several.example.test.";
    backend_->AddTxt(kOwnZone, name, "one");
    backend_->AddTxt(kOwnZone, name, "two");
    EXPECT_EQ(Server().Txt(name), "\"one\"\n\"two\"\n");
    backend_->RemoveTxt(kOwnZone, name, "one");
    EXPECT_EQ(Server().Txt(name), "\"two\"\n");
}

// Behaviour: An existing value is "exists", whoever put it there
TEST_P(UpdatesOf, SaysThatAValueIsThereWhoeverPutIt) {
    const std::string name = "_acme-challenge.exists.example.test";
    MakeBackend(Good())->AddTxt(kOwnZone, name, "value");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kOwnZone, name + ".", "value"); }), "exists");
    EXPECT_EQ(
        TypeOf([&] { backend_->AddTxt("Example.TEST.", "_ACME-Challenge.exists.example.test", "value"); }),
        "exists");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kOwnZone, name, "VALUE"); }), "none");
    EXPECT_EQ(Server().Txt(name), "\"VALUE\"\n\"value\"\n");
}

// Behaviour: A dynamic update adds a value with its time ...
TEST_P(UpdatesOf, RemovingWhatIsNotThereSucceeds) {
    const std::string name = "_acme-challenge.missing.example.test.";
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kOwnZone, name, "value"); }), "none");
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kOwnZone, "_acme-challenge.other.example.", "value"); }),
              "none");
    backend_->AddTxt(kOwnZone, name, "value");
    backend_->RemoveTxt(kOwnZone, name, "value");
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kOwnZone, name, "value"); }), "none");
    EXPECT_EQ(Server().Txt(name), "");
}

// Behaviour: Any printable value arrives unchanged
TEST_P(UpdatesOf, AnyPrintableValueArrivesUnchanged) {
    const std::string name = "_acme-challenge.odd.example.test.";
    const std::string odd = "a \"quoted\" text, back\\slash \\123; $x @y (z) 'q'";
    for (const std::string& value : {odd, std::string(255, 'x')}) {
        backend_->AddTxt(kOwnZone, name, value);
        EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kOwnZone, name, value); }), "exists") << value;
        backend_->RemoveTxt(kOwnZone, name, value);
        EXPECT_EQ(Server().Txt(name), "") << value;
    }
}

// Behaviour: A record's name may be the zone itself, or begin with a star
TEST_P(UpdatesOf, NameMayBeTheZoneItselfOrBeginWithAStar) {
    backend_->AddTxt(kOwnZone, kOwnZone, "apex");
    EXPECT_EQ(Server().Txt(kOwnZone), "\"apex\"\n");
    backend_->RemoveTxt(kOwnZone, kOwnZone, "apex");
    backend_->AddTxt(kOwnZone, "*.star.example.test.", "star");
    EXPECT_EQ(Server().Txt("anything.star.example.test"), "\"star\"\n");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kOwnZone, "*.star.example.test", "star"); }), "exists");
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_P(UpdatesOf, AliasIsReportedInsteadOfLosingTheRecord) {
    const Failure failure =
        FailureOf([&] { backend_->AddTxt(kOwnZone, "_acme-challenge.alias.example.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("CNAME")));
}

// Behaviour: A refused key, a foreign or static zone, an alias in the way and a server that is down or silent
//   are errors "dns" that say so
TEST_P(UpdatesOf, WrongKeyIsRefused) {
    Settings settings = Good();
    settings["dns-key-file"] = parts::WriteTsigKey(Server().folder(), "stranger");
    const auto stranger = MakeBackend(settings);
    for (const auto& action : {&Backend::AddTxt, &Backend::RemoveTxt}) {
        const Failure failure =
            FailureOf([&] { (*stranger.*action)(kOwnZone, "_acme-challenge.key.example.test", "v"); });
        EXPECT_EQ(failure.code, zelvek::Code::kDns);
        EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("key is refused (NOTAUTH)")));
    }
    EXPECT_EQ(Server().Txt("_acme-challenge.key.example.test"), "");
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_P(UpdatesOf, RightNameWithAnotherSecretIsRefused) {
    const parts::TempFolder folder;
    Settings settings = Good();
    settings["dns-key-file"] = parts::WriteTsigKey(folder.path(), "update");
    const Failure failure =
        FailureOf([&] { MakeBackend(settings)->AddTxt(kOwnZone, "a.example.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, HasSubstr("key is refused (NOTAUTH)"));
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_P(UpdatesOf, ZoneThatTheServerDoesNotHaveIsReported) {
    const Failure failure = FailureOf([&] { backend_->AddTxt("elsewhere.test", "a.elsewhere.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("REFUSED")));
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_P(UpdatesOf, ZoneThatTakesNoUpdatesIsReported) {
    const Failure failure = FailureOf([&] { backend_->AddTxt("static.test", "a.static.test", "v"); });
    EXPECT_EQ(failure.code, zelvek::Code::kDns);
    EXPECT_THAT(failure.text, HasSubstr(Address()));
    // To Knot a key is known only where a zone's rules name it, so that it refuses the question already.
    if (GetParam() == Make::kKnot) {
        EXPECT_THAT(failure.text, HasSubstr("key is refused (NOTAUTH)"));
    } else {
        EXPECT_THAT(failure.text, AllOf(HasSubstr("static.test"), HasSubstr("REFUSED")));
    }
}

// Behaviour: Threads may add and remove records at once
TEST_P(UpdatesOf, ThreadsCanUpdateAtOnce) {
    std::vector<std::thread> threads(4);
    const std::string name = "_acme-challenge.threads.example.test";
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&, i] { backend_->AddTxt(kOwnZone, name, "value" + std::to_string(i)); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Server().Txt(name), "\"value0\"\n\"value1\"\n\"value2\"\n\"value3\"\n");
}

}  // namespace
