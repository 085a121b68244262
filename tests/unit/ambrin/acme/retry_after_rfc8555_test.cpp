#include "acme/retry_after.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;

class RetryAfterByTheLetter : public JobTest {
protected:
    RetryAfterByTheLetter() { world.SetNow("2030-06-01 12:00:00"); }

    static int AskedBy(const std::string& value) {
        return RetryAfter({200, "Retry-After: " + value + "\r\n"});
    }
};

// Behaviours of: The style rfc8555

// Behaviour: In the style rfc8555 a date in "retry-after" asks for a pause until then, of a second at least
// and a day
//   at most
TEST_F(RetryAfterByTheLetter, DateAsksForAPauseUntilThen) {
    EXPECT_EQ(AskedBy("Sat, 01 Jun 2030 12:00:07 GMT"), 7);
    EXPECT_EQ(AskedBy("Sun, 02 Jun 2030 00:00:00 GMT"), 43200);
    EXPECT_EQ(AskedBy("Sat, 01 Jun 2030 12:00:00 GMT"), 1);
    EXPECT_EQ(AskedBy("Sun, 06 Nov 1994 08:49:37 GMT"), 1);
    EXPECT_EQ(AskedBy("Fri, 31 Dec 9999 23:59:59 GMT"), 86400);
}

// Behaviour: In the style rfc8555 every month's name is known
TEST_F(RetryAfterByTheLetter, EveryMonthIsKnown) {
    int month = 0;
    for (const std::string name :
         {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"}) {
        const std::string number = std::to_string(++month);
        world.SetNow("2030-" + std::string(number.size() == 1 ? "0" : "") + number + "-03 04:05:00");
        EXPECT_EQ(AskedBy("Mon, 03 " + name + " 2030 04:05:06 GMT"), 6) << name;
    }
}

// Behaviour: In the style rfc8555 a number in "retry-after" is taken as it stands, and what is neither number
// nor date
//   asks for no pause
TEST_F(RetryAfterByTheLetter, AnythingElseIsReadAsANumber) {
    EXPECT_EQ(AskedBy("7"), 7);
    EXPECT_EQ(AskedBy("100000"), 100000);
    for (const std::string value :
         {"soon", "", "Sat, 01 Jun 2030 12:00:07", "Sat, 01 Jun 2030 12:00:07 UTC",
          "Sat, 01 jun 2030 12:00:07 GMT", "Sat, 01 anF 2030 12:00:07 GMT",
          "Sat, 01 JanFeb 2030 12:00:07 GMT", "Sat, 31 Jun 2030 12:00:07 GMT", "Sat, 01 Jun 2030 12:00 GMT",
          "Saturday, 01-Jun-30 12:00:07 GMT", "Sat, 01  2030 12:00:07 GMT GMT"})
        EXPECT_EQ(AskedBy(value), 0) << value;
    EXPECT_EQ(RetryAfter({200, ""}), 1);
}

}  // namespace
