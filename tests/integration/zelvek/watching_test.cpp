// What monitoring scripts see.
#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using vek_date::DateTime;

class StatusCheck : public ServiceTest {
protected:
    /// The installed certificate of the job ends in so many days and is renewed in so many.
    void SetEnd(const std::string& id, int days, int renewed_in_days) {
        Stop();
        SQLite::Database(Database().string(), SQLite::OPEN_READWRITE)
            .exec("UPDATE job SET verified = 1, failures = 0, expires = '" +
                  DateTime().AddDays(days).AsDateTime() + "', renew = '" +
                  DateTime().AddDays(renewed_in_days).AsDateTime() + "' WHERE id = " + id);
        Start();
    }

    Ended Checked() { return Zelvek({"status", "--check"}); }
};

// Behaviours of: Watching the service

// Behaviour: `zelvek status --check` says in one line and by its exit status that all is well, that jobs
//   fail, that a certificate ends, or that the service cannot be reached
TEST_F(StatusCheck, TellsByItsStatusHowThingsAre) {
    Start();
    const std::string id = AddJob();
    Ended ended = Checked();
    EXPECT_EQ(ended.status, 0) << ended.out << ended.err;
    EXPECT_EQ(ended.out,
              "ZELVEK OK - no job fails, no certificate ends soon | failed=0 failing=0 waiting=1 running=0"
              " verified=0 paused=0 late=0\n");
    ReadJob(id);
    Write(id, {{"log", "2031-02-03 11:20:14,failed,http_query_error,no route | at all"}});
    ended = Checked();
    EXPECT_EQ(ended.status, 1) << ended.out;
    EXPECT_THAT(ended.out, StartsWith("ZELVEK WARNING - "));
    EXPECT_THAT(ended.out, HasSubstr("(job " + id + ", user anna) fails: "));
    EXPECT_THAT(ended.out, HasSubstr(" | failed=0 failing=1 "));
    Stop();
    ended = Checked();
    EXPECT_EQ(ended.status, 2) << ended.out;
    EXPECT_THAT(ended.out, StartsWith("ZELVEK CRITICAL - cannot reach the service: "));
    EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 1);
}

// Behaviour: A certificate that ends within three days is critical when its renewal was due, or it has ended
TEST_F(StatusCheck, IsCriticalForCertificatesThatAreLate) {
    Start();
    const std::string id = AddJob();
    SetEnd(id, 2, 1);
    EXPECT_EQ(Checked().status, 0) << "a short-lived one, whose renewal lies ahead";
    SetEnd(id, 4, -1);
    EXPECT_EQ(Checked().status, 0);
    SetEnd(id, 2, -1);
    Ended ended = Checked();
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.out, HasSubstr("(job " + id + ", user anna) is not renewed and ends at "));
    SetEnd(id, -1, 1);
    ended = Zelvek({"status", "--check", "--json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.out, HasSubstr("\"critical\""));
    EXPECT_THAT(ended.out, HasSubstr(" ended at "));
}

}  // namespace

}  // namespace zelvek::testing
