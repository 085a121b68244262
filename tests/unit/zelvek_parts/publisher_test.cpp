#include "zelvek/publishing/publisher.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <string>

#include "unit/zelvek_parts/support.h"
#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/store/store.h"

namespace {

using zelvek::publications::PublishedItem;

/// A name server that does not answer for one zone until the test says so.
class SilentForOne : public zelvek::dns::Backend {
public:
    bool Serves(const std::string&) const override { return true; }
    void AddTxt(const std::string& zone, const std::string&, const std::string&) override {
        if (zone != "silent.example") return;
        asked.set_value();
        answer.get_future().wait();
    }
    void RemoveTxt(const std::string&, const std::string&, const std::string&) override {}

    std::promise<void> asked;
    std::promise<void> answer;
};

// Behaviours of: What runs publish, and what dead ones leave

// Behaviour: A name server that is slow for one record keeps no other publication waiting
TEST(Publisher, WaitsForOneItemAlone) {
    const parts::TempFolder folder;
    zelvek::Store store(folder.path() / "zelvek.db");
    const auto server = std::make_shared<SilentForOne>();
    zelvek::Publisher publisher(store, folder.path(), server);
    const zelvek::Process self = zelvek::FindProcess(getpid()).value();
    const auto publish = [&](const std::string& zone) {
        publisher.Publish(self, "anna", PublishedItem{zone, "_acme-challenge." + zone, "value"}, "");
    };
    auto slow = std::async(std::launch::async, [&] { publish("silent.example"); });
    server->asked.get_future().wait();
    publish("other.example");
    publisher.Publish(self, "anna", PublishedItem{"", "token", ""}, "content");
    EXPECT_EQ(parts::Content(folder.path() / "token"), "content");
    EXPECT_NE(slow.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    server->answer.set_value();
    slow.get();
}

/// A name server whose zones are remembered for an hour elsewhere.
class Remembered : public zelvek::dns::Backend {
public:
    bool Serves(const std::string&) const override { return true; }
    void AddTxt(const std::string&, const std::string&, const std::string&) override {}
    void RemoveTxt(const std::string&, const std::string&, const std::string&) override {}
    std::chrono::seconds NegativeTtl(const std::string& zone) override {
        if (zone == "silent.example") throw zelvek::Error(zelvek::Code::kUnavailable, "no answer");
        return zone == "long.example" ? std::chrono::hours{1000} : std::chrono::hours{1};
    }
};

// Behaviour: A published record counts as seen by all when what name servers remember of its zone is over,
// after
//   three hours at the latest; what a server does not tell counts for nothing
TEST(Publisher, NotesWhenARecordIsSeenByAll) {
    const parts::TempFolder folder;
    zelvek::Store store(folder.path() / "zelvek.db");
    zelvek::Publisher publisher(store, folder.path(), std::make_shared<Remembered>());
    const zelvek::Process self = zelvek::FindProcess(getpid()).value();
    const auto seen = [&](const std::string& zone) {
        publisher.Publish(self, "anna", PublishedItem{zone, "_acme-challenge." + zone, "value"}, "");
        zelvek::Transaction transaction(store);
        return zelvek::publications::SeenByAll(transaction, 0);
    };
    const auto in = [](int seconds) { return vek_date::DateTime().AddSeconds(seconds).AsDateTime(); };
    EXPECT_EQ(seen("silent.example"), "");
    EXPECT_GT(seen("some.example"), in(3600));
    EXPECT_LT(seen("some.example"), in(3700));
    EXPECT_GT(seen("long.example"), in(3 * 3600));
    EXPECT_LT(seen("long.example"), in(3 * 3600 + 100));
}

// Behaviour: Where the DNS back end is replaced, a record under way is written where that began, and later
// ones
//   in the new place
TEST(Publisher, GoesOnWhereAPublicationBegan) {
    const parts::TempFolder folder;
    zelvek::Store store(folder.path() / "zelvek.db");
    auto old_one = std::make_shared<SilentForOne>();
    zelvek::Publisher publisher(store, folder.path(), old_one);
    const zelvek::Process self = zelvek::FindProcess(getpid()).value();
    const auto publish = [&] {
        publisher.Publish(self, "anna", {"silent.example", "_acme-challenge.silent.example", "value"}, "");
    };
    auto slow = std::async(std::launch::async, publish);
    old_one->asked.get_future().wait();
    publisher.UseRecords(nullptr);
    EXPECT_EQ(publisher.records(), nullptr);
    EXPECT_GT(old_one.use_count(), 1) << "who works with it keeps it";
    old_one->answer.set_value();
    slow.get();
    EXPECT_EQ(old_one.use_count(), 1);
    EXPECT_EQ(parts::FailureOf(publish).type, "dns");
}

// Behaviour: Where no DNS back end is configured the error names the options that select one
TEST(Publisher, WithoutABackendNamesTheOptions) {
    const parts::TempFolder folder;
    zelvek::Store store(folder.path() / "zelvek.db");
    zelvek::Publisher publisher(store, folder.path(), nullptr);
    const zelvek::Process self = zelvek::FindProcess(getpid()).value();
    const parts::Failure failure = parts::FailureOf([&] {
        publisher.Publish(self, "anna", PublishedItem{"a.example", "_acme-challenge.a.example", "value"}, "");
    });
    EXPECT_EQ(failure.type, "dns");
    for (const char* option : {"--dns-server", "--dns-records-file", "--dns-command"}) {
        EXPECT_NE(failure.text.find(option), std::string::npos) << failure.text;
    }
}

}  // namespace
