// How long the client waits for a service, and where it looks for one.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "integration/vek/server.h"
#include "integration/vek/stopped_clock.h"
#include "vek/client.h"
#include "vek/err.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using vek_test::StoppedClock;

std::string ErrorOf(const std::string& service, const std::string& query = "func=a") {
    try {
        vek_client::Local(service, "test").Query(query);
        return "";
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "connect");
        return e.what();
    }
}

// Behaviours of: Queries to a local service

// Behaviour: A missing or restarting service is waited ...
TEST(ClientWait, ForAMissingServiceTakesFiveSecondsInShortSteps) {
    const vek_test::TempFolder folder;
    const vek_test::Variable run_dir("VEK_RUN_DIR", folder.path());
    const StoppedClock clock;
    EXPECT_EQ(ErrorOf("missing"),
              "client: connect: " + folder.file("missing.sock") + ": No such file or directory");
    EXPECT_EQ(clock.slept(), seconds(5));
    EXPECT_EQ(clock.sleeps(), seconds(5) / milliseconds(50));
}

// Behaviour: A query that stores something is tried for five minutes, with pauses that grow from 50
//   milliseconds to 5 seconds
TEST(ClientWait, WithWhatIsToBeStoredTakesFiveMinutesInLongerSteps) {
    const vek_test::TempFolder folder;
    const vek_test::Variable run_dir("VEK_RUN_DIR", folder.path());
    constexpr int kGrowing = 7;  // 50, 100, ... 3200 milliseconds
    constexpr int kLongest = 59;
    for (const std::string query : {"sok=ok", "sok=ok&func=a", "func=a&sok=ok", "a=sok&sok=ok&b"}) {
        const StoppedClock clock;
        ErrorOf("missing", query);
        EXPECT_EQ(clock.slept(), std::chrono::minutes(5)) << query;
        EXPECT_EQ(clock.sleeps(), kGrowing + kLongest) << query;
    }
    for (const std::string query : {"sok=okay", "xsok=ok", "func=a&sok=", "func=sok=ok", "sok=ok1&1sok=ok"}) {
        const StoppedClock clock;
        ErrorOf("missing", query);
        EXPECT_EQ(clock.slept(), seconds(5)) << query;
    }
}

// Behaviour: A service that cannot be reached is an error ...
TEST(ClientWait, IsNoneForASocketThatWillNeverBeThere) {
    const vek_test::Variable run_dir("VEK_RUN_DIR", "/dev/null");
    const StoppedClock clock;
    EXPECT_EQ(ErrorOf("missing"), "client: connect: /dev/null/missing.sock: Not a directory");
    EXPECT_EQ(clock.sleeps(), 0);
}

// Behaviour: The service's socket is looked for in VEK_RUN_DIR ...
// No service has this name.
TEST(ClientFolder, IsTheUsualOneWhereNoneIsSet) {
    const std::string error = "client: connect: /run/vek/no-service.sock: No such file or directory";
    const vek_test::Variable run_dir("VEK_RUN_DIR", "");
    const StoppedClock clock;
    EXPECT_EQ(ErrorOf("no-service"), error);
    unsetenv("VEK_RUN_DIR");
    EXPECT_EQ(ErrorOf("no-service"), error);
}

}  // namespace
