#include "zelvek/jobs/outcome.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

history::Event Failed(const std::string& event, int code = 0) {
    const std::string answer =
        "<p><b>Return code:</b> " + std::to_string(code) + "</p></br><p><b>Details:</b> no</p>";
    return {"2026-01-01 00:00:00", "failed", event, code == 0 ? "no route<br>url: https://a/" : answer};
}

const history::Event kStep{"2026-01-01 00:00:00", "processing", "order_success", ""};

// Behaviours of: Scheduling

// Behaviour: A run's events and return codes say what it came to: on its way, an exchange that failed, an
// authority that
//   asks for patience, a refusal, or something that a person has to mend
TEST(OutcomeOfARun, GoesByEventsAndReturnCodes) {
    EXPECT_EQ(OutcomeOf({}, false), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOf({kStep}, false), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOf({kStep, Failed("http_query_error")}, false), Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 500)}, false), Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 429)}, false), Outcome::kLimited);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 503)}, false), Outcome::kLimited);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 403)}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("auth_req_attempt")}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("timeout_error")}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("http_query_error")}, true), Outcome::kForPeople);
}

// Behaviour: Of several failures of a run the last one counts, but an authority that asks for patience gets
// it
TEST(OutcomeOfARun, GoesByTheLastFailure) {
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 403), Failed("http_query_error")}, false),
              Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 429), Failed("http_query_error")}, false),
              Outcome::kLimited);
}

// Behaviour: No other text of a detail decides anything
TEST(OutcomeOfARun, TakesNoCodeFromFreeText) {
    history::Event event = Failed("acme_request_error", 403);
    event.detail += " <p><b>Return code:</b> 429</p>";
    EXPECT_EQ(OutcomeOf({event}, false), Outcome::kRefused);
    event.detail = "see <p><b>Return code:</b> 429</p>";
    EXPECT_EQ(OutcomeOf({event}, false), Outcome::kRefused);
}

}  // namespace
}  // namespace zelvek
