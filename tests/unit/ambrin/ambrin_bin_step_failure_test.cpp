// A failure at each step of a whole run.
#include "support/failing_run.h"
#include "vek/proc.h"

namespace {

using ambrin_test::FailingRun;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vek_double::Failure;

class EveryStep : public FailingRun {
protected:
    /// The number of outside steps of a run that nothing disturbs.
    int StepsOfAWholeRun() {
        Run();
        const int steps = world.steps();
        EXPECT_GT(steps, 30);
        return steps;
    }
};

class StepFailure : public FailingRun, public testing::WithParamInterface<std::pair<int, std::string>> {
protected:
    StepFailure() {
        if (GetParam().second == "dns, published before") {
            MakeSecondRun();
            visible_records = {"_acme-challenge.shop.example.", "_acme-challenge.www.shop.example."};
            job["check_type"] = "dns";
        }
        if (GetParam().second == "http, own account") UseStoredAccount();
        job["max_account_check_attempts"] = "9";
    }

    bool HasStoredKey() const { return job.contains("acmekey"); }
};

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: A failure at any step of a run leaves a record that can be written back, never without its
//   stored key
TEST_P(StepFailure, ErrorLeavesARecordThatCanBeWrittenBack) {
    world.FailAtStep(GetParam().first, Failure::kError);
    bool thrown = false;
    int status = -1;
    try {
        status = Run();
    } catch (const vek_err::Error&) {
        thrown = true;
    }
    EXPECT_TRUE(thrown || status == 0 || status == 1);
    world.ForgetFailures();
    const bool verified = ambrin_data.verified;
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("elid"), "7");
    EXPECT_EQ(posted.at("verified"), verified ? "on" : "off");
    EXPECT_FALSE(HasStoredKey() && GetParam().first > 1 && posted.at("acmekey").empty());
}

// Behaviour: An interruption at any step registers no new account, logs no failed exchange and keeps the
//   stored key
// Behaviour: An interruption is no std::exception, so ...
TEST_P(StepFailure, InterruptionLeavesTheAccountAndTheRecordWhole) {
    world.FailAtStep(GetParam().first, Failure::kInterrupted);
    try {
        EXPECT_EQ(Run(), 0) << "only the last queries of a finished run have no wait after them";
        EXPECT_TRUE(ambrin_data.verified);
    } catch (const vek_proc::Interrupted&) {
        EXPECT_FALSE(ambrin_data.verified);
        EXPECT_THAT(JobLog(), Not(Contains(HasSubstr("http_query_error"))));
        EXPECT_THAT(world.Lines({"generate key"}), IsEmpty());
    }
    world.ForgetFailures();
    const std::string posted_key = EndOfProcess().at("acmekey");
    EXPECT_TRUE(!HasStoredKey() || posted_key == job["acmekey"]);
}

std::vector<std::pair<int, std::string>> AllSteps() {
    std::vector<std::pair<int, std::string>> steps;
    for (int step = 1; step <= 40; ++step)
        for (const std::string job : {"http, default account", "http, own account", "dns, published before"})
            steps.emplace_back(step, job);
    return steps;
}

INSTANTIATE_TEST_SUITE_P(, StepFailure, testing::ValuesIn(AllSteps()), [](const auto& step) {
    std::string name = "Step" + std::to_string(step.param.first) + "_" + step.param.second;
    for (char& c : name)
        if (c == ' ' || c == ',') c = '_';
    return name;
});

// Behaviour: A failure at any step of a run leaves a record ...
TEST_F(EveryStep, TheSweepCoversTheWholeRun) { EXPECT_LE(StepsOfAWholeRun(), 40); }

}  // namespace
