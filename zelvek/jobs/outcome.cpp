#include "zelvek/jobs/outcome.h"

#include <algorithm>

#include "zelvek/jobs/authority_answer.h"

namespace zelvek {

namespace {

constexpr int kUnavailable = 503;

Outcome OfFailure(const history::Event& event) {
    const int code = ReturnCode(event.detail);
    if (code == kTooManyRequests || code == kUnavailable) return Outcome::kLimited;
    if (event.event == "http_query_error" || IsServerError(code)) return Outcome::kUnreached;
    return Outcome::kRefused;
}

}  // namespace

Outcome OutcomeOf(const std::vector<history::Event>& events, bool panel_refused) {
    if (panel_refused) return Outcome::kForPeople;
    std::vector<Outcome> failures;
    for (const history::Event& event : events) {
        if (event.state == "failed") failures.push_back(OfFailure(event));
    }
    if (failures.empty()) return Outcome::kOnItsWay;
    // Whatever else failed, an authority that asks for patience gets it.
    const bool limited = std::find(failures.begin(), failures.end(), Outcome::kLimited) != failures.end();
    return limited ? Outcome::kLimited : failures.back();
}

bool IsFailedCheck(const history::Event& event) {
    return event.state == "failed" &&
           (event.event == "challenge_fail" || event.event == "challenge_req_attempt");
}

}  // namespace zelvek
