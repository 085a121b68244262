#include "zelvek/publishing/publisher.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <string>

#include "unit/zelvek_parts/support.h"
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
    SilentForOne server;
    zelvek::Publisher publisher(store, folder.path(), &server);
    const zelvek::Process self = zelvek::FindProcess(getpid()).value();
    const auto publish = [&](const std::string& zone) {
        publisher.Publish(self, "anna", PublishedItem{zone, "_acme-challenge." + zone, "value"}, "");
    };
    auto slow = std::async(std::launch::async, [&] { publish("silent.example"); });
    server.asked.get_future().wait();
    publish("other.example");
    publisher.Publish(self, "anna", PublishedItem{"", "token", ""}, "content");
    EXPECT_EQ(parts::Content(folder.path() / "token"), "content");
    EXPECT_NE(slow.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    server.answer.set_value();
    slow.get();
}

}  // namespace
