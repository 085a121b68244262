// What web servers serve of the installed certificates.
#include "zelvek/store/served.h"

#include "engine.h"

namespace zelvek::testing {

namespace {

class StoredServed : public StoreTest {};

INSTANTIATE_TEST_SUITE_P(Engines, StoredServed, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: What was seen last of a certificate at the web server is kept, by user and folder, until it is
//   forgotten
TEST_P(StoredServed, IsWhatWasSeenLast) {
    using served::State;
    const auto find = [&](const std::string& user, const std::string& folder) {
        return Do([&](Transaction& transaction) { return served::Find(transaction, user, folder); });
    };
    EXPECT_FALSE(find("anna", "a"));
    for (const State state : {State::kServed, State::kOlder, State::kUnreachable}) {
        Do([&](Transaction& transaction) { served::Set(transaction, "anna", "a", {state, "t", "d"}); });
        Reopen();
        ASSERT_TRUE(find("anna", "a"));
        EXPECT_EQ(find("anna", "a")->state, state);
    }
    Do([&](Transaction& transaction) { served::Set(transaction, "bob", "a", {State::kServed, "u", "e"}); });
    EXPECT_EQ(find("anna", "a")->time, "t");
    EXPECT_EQ(find("bob", "a")->detail, "e");
    EXPECT_FALSE(find("bob", "b"));
    Do([](Transaction& transaction) { served::Forget(transaction, "anna", "a"); });
    EXPECT_FALSE(find("anna", "a"));
    EXPECT_TRUE(find("bob", "a"));
}

}  // namespace

}  // namespace zelvek::testing
