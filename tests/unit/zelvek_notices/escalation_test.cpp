// When people are told that a certificate comes to its end, with a clock that only the test moves.
#include "zelvek/notices/escalation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zelvek::notices {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vek_date::DateTime;
using Tell = Escalation::Tell;

/// A certificate of ninety days, whose renewal began thirty days before its end.
Job Installed() {
    Job job;
    job.expires = "2026-03-31 00:00:00";
    job.renew = "2026-03-01 00:00:00";
    return job;
}

/// A certificate of six days, whose renewal began three days before its end.
Job ShortLived() {
    Job job;
    job.expires = "2026-03-31 00:00:00";
    job.renew = "2026-03-28 00:00:00";
    return job;
}

/// Looks at the job whenever it asks for that, and with `every_hour` each hour besides, and notes what is
/// told when: "TIME DAYS LEVEL".
std::vector<std::string> Course(Job job, const std::string& from, const std::string& until,
                                bool every_hour = false) {
    std::vector<std::string> told;
    const DateTime end(until);
    for (DateTime now(from); now <= end;) {
        const Escalation result = EscalationOf(job, now);
        if (result.tell != Tell::kNothing) {
            told.push_back(now.AsDateTime() + " " + std::to_string(result.days) + " " + result.level);
        }
        job.notice_step = result.step;
        job.notice_due = result.look;
        if (!every_hour && result.look.empty()) break;
        if (!every_hour) {
            EXPECT_GT(DateTime(result.look), now) << "no look that leads to another at once";
            now = DateTime(result.look);
        } else {
            now.AddSeconds(3600);
        }
    }
    return told;
}

// Behaviours of: Notices

// Behaviour: A certificate that is not renewed is told 14, 7, 3 and 1 days before its end, each step once and
//   more urgent than the one before, however often its job is looked at
TEST(Escalation, TellsOfACertificateInFourSteps) {
    const auto steps = ElementsAre("2026-03-17 00:00:00 14 notice", "2026-03-24 00:00:00 7 warning",
                                   "2026-03-28 00:00:00 3 error", "2026-03-30 00:00:00 1 critical");
    EXPECT_THAT(Course(Installed(), "2026-01-01 00:00:00", "2026-03-30 23:00:00"), steps);
    EXPECT_THAT(Course(Installed(), "2026-01-01 00:00:00", "2026-03-30 23:00:00", true), steps);
}

// Behaviour: That a certificate has ended is told at once, and weekly until it is renewed
TEST(Escalation, TellsWeeklyOfACertificateThatHasEnded) {
    Job job = Installed();
    job.notice_step = 1;
    const auto weeks = ElementsAre("2026-03-31 00:00:00 0 critical", "2026-04-07 00:00:00 0 critical",
                                   "2026-04-14 00:00:00 0 critical");
    EXPECT_THAT(Course(job, "2026-03-30 12:00:00", "2026-04-20 00:00:00"), weeks);
    EXPECT_THAT(Course(job, "2026-03-30 12:00:00", "2026-04-20 00:00:00", true), weeks);
}

// Behaviour: Before its renewal begins nothing is told of a certificate
TEST(Escalation, IsSilentBeforeTheRenewal) {
    const Escalation result = EscalationOf(Installed(), DateTime("2026-02-28 23:59:59"));
    EXPECT_EQ(result, (Escalation{Tell::kNothing, 0, "", 0, "2026-03-01 00:00:00"}));
}

// Behaviour: Of several steps that have passed meanwhile, the service being down, say, the last one is told
// alone
TEST(Escalation, TellsTheLastOfSeveralSteps) {
    Job job = Installed();
    Escalation result = EscalationOf(job, DateTime("2026-03-29 12:00:00"));
    EXPECT_EQ(result, (Escalation{Tell::kEnding, 3, "error", 3, "2026-03-30 00:00:00"}));
    result = EscalationOf(job, DateTime("2026-04-02 00:00:00"));
    EXPECT_EQ(result.tell, Tell::kEnded) << "the end has passed";
    job.notice_step = 14;
    EXPECT_EQ(EscalationOf(job, DateTime("2026-03-25 00:00:00")).days, 7);
}

// Behaviour: A new certificate begins from the first step
TEST(Escalation, OfANewCertificateBeginsAnew) {
    Job job = Installed();
    job.notice_step = 0;  // as the installation sets it
    job.expires = "2026-06-29 00:00:00";
    job.renew = "2026-05-30 00:00:00";
    EXPECT_THAT(Course(job, "2026-03-30 00:00:00", "2026-06-16 00:00:00"),
                ElementsAre("2026-06-15 00:00:00 14 notice"));
}

// Behaviour: A certificate with a short life is told by the steps that come after its renewal has begun, and
// only
//   after a run has failed
TEST(Escalation, OfAShortLifeTellsOnlyAfterAFailure) {
    Job job = ShortLived();
    EXPECT_THAT(Course(job, "2026-03-25 00:00:00", "2026-03-30 23:00:00", true), IsEmpty());
    job.failures = 1;
    const auto steps = ElementsAre("2026-03-28 00:00:00 3 error", "2026-03-30 00:00:00 1 critical");
    EXPECT_THAT(Course(job, "2026-03-25 00:00:00", "2026-03-30 23:00:00", true), steps);
    EXPECT_THAT(Course(job, "2026-03-25 00:00:00", "2026-03-30 23:00:00"), steps);
    job.failures = 0;
    job.failed = true;
    EXPECT_THAT(Course(job, "2026-03-25 00:00:00", "2026-03-30 23:00:00"), steps);
    job.renew = "2026-03-30 12:00:00";  // of a day's life
    EXPECT_THAT(Course(job, "2026-03-25 00:00:00", "2026-03-30 23:00:00", true), IsEmpty());
}

// Behaviour: The failure of a certificate with a short life is found within an hour after a step has passed
TEST(Escalation, OfAShortLifeLooksAgainWithinAnHour) {
    const Escalation result = EscalationOf(ShortLived(), DateTime("2026-03-28 06:00:00"));
    EXPECT_EQ(result, (Escalation{Tell::kNothing, 0, "", 0, "2026-03-28 07:00:00"}));
}

// Behaviour: A job that has never had a certificate is told when three of its runs have failed one after the
//   other, or when it was stopped, then weekly while that is so
TEST(Escalation, TellsOfAJobThatNeverGetsACertificate) {
    Job job;
    for (job.failures = 0; job.failures < 3; ++job.failures) {
        EXPECT_EQ(EscalationOf(job, DateTime("2026-03-01 00:00:00")), Escalation{});
    }
    const auto weekly = ElementsAre("2026-03-01 00:00:00 0 error", "2026-03-08 00:00:00 0 error",
                                    "2026-03-15 00:00:00 0 error");
    EXPECT_THAT(Course(job, "2026-03-01 00:00:00", "2026-03-16 00:00:00"), weekly);
    job.failures = 0;
    job.failed = true;
    EXPECT_THAT(Course(job, "2026-03-01 00:00:00", "2026-03-16 00:00:00"), weekly);
    job.failed = false;
    job.notice_step = 1;
    EXPECT_EQ(EscalationOf(job, DateTime("2026-03-22 00:00:00")), Escalation{})
        << "it does not fail any more";
}

// Behaviour: Of a verified job of whose certificate nobody knows the end, and of times that cannot be read,
//   nothing is told
TEST(Escalation, OfUnknownTimesTellsNothing) {
    Job job;
    job.verified = true;
    job.failures = 10;
    EXPECT_EQ(EscalationOf(job, DateTime("2026-03-01 00:00:00")), Escalation{});
    for (auto* const damaged : {&job.expires, &job.renew}) {
        job = Installed();
        *damaged = "soon";
        EXPECT_EQ(EscalationOf(job, DateTime("2026-03-30 00:00:00")), Escalation{});
    }
}

}  // namespace

}  // namespace zelvek::notices
