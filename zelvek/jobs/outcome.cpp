#include "zelvek/jobs/outcome.h"

#include <algorithm>

#include "zelvek/jobs/authority_answer.h"

namespace zelvek {

namespace {

constexpr int kUnavailable = 503;

bool IsFailure(const history::Event& event) { return event.state == "failed"; }

bool IsPatience(int code) { return code == kTooManyRequests || code == kUnavailable; }

/// A refusal that a request for an order may have met which was finalized before. Its words decide nothing.
bool MayBeOfAPoll(const history::Event& event) {
    const int code = ReturnCode(event.detail);
    return !IsPatience(code) && !IsServerError(code);
}

/// Whether a check has failed without a word just before the last event: its order is not ready for anything.
bool HasFailedCheck(std::span<const history::Event> events) {
    for (auto event = events.rbegin() + 1; event != events.rend(); ++event) {
        if (!event->event.starts_with("challenge_")) return false;
        if (IsFailedCheck(*event)) return true;
    }
    return false;
}

/// A request without a nonce is refused, whatever it asks for.
bool HasNonceTrouble(std::span<const history::Event> events) {
    return events.size() > 1 && IsFailure(events[events.size() - 2]);
}

Outcome OfFailure(const history::Event& event) {
    const int code = ReturnCode(event.detail);
    if (IsPatience(code)) return Outcome::kLimited;
    if (event.event == "http_query_error" || IsServerError(code)) return Outcome::kUnreached;
    return Outcome::kRefused;
}

}  // namespace

const char* Word(Outcome outcome) {
    switch (outcome) {
        case Outcome::kOnItsWay: break;
        case Outcome::kUnreached: return "unreached";
        case Outcome::kLimited: return "limited";
        case Outcome::kRefused: return "refused";
        case Outcome::kForPeople: return "for_people";
        case Outcome::kUnfetched: return "unfetched";
        case Outcome::kCutShort: return "cut_short";
    }
    return "none";
}

Outcome OutcomeOf(const std::vector<history::Event>& events, bool panel_refused) {
    if (MayHaveIssued(events)) return Outcome::kUnfetched;
    if (panel_refused) return Outcome::kForPeople;
    std::vector<Outcome> failures;
    for (const history::Event& event : events) {
        if (IsFailure(event)) failures.push_back(OfFailure(event));
    }
    if (failures.empty()) return Outcome::kOnItsWay;
    // Whatever else failed, an authority that asks for patience gets it.
    const bool limited = std::find(failures.begin(), failures.end(), Outcome::kLimited) != failures.end();
    return limited ? Outcome::kLimited : failures.back();
}

bool MayHaveIssued(std::span<const history::Event> events) {
    // Without a failure somebody has ended the run.
    if (events.empty() || !IsFailure(events.back())) return false;
    const auto step = std::find_if_not(events.rbegin(), events.rend(), &IsFailure);
    if (step != events.rend() && step->event == "cert_order_success") return true;
    const history::Event& last = events.back();
    if (last.event == "cert_recive_failed" || last.event == "cert_order_req_attempt") return true;
    return last.event == "cert_order_fail" && MayBeOfAPoll(last) && !HasFailedCheck(events) &&
           !HasNonceTrouble(events);
}

Outcome OutcomeOfRun(const Job& job, const std::vector<history::Event>& events, const std::string& now) {
    const bool goes_on = !job.challenges.empty() || job.next_attempt > now;
    const Outcome outcome = OutcomeOf(events, !job.refusal.empty());
    if (outcome == Outcome::kUnfetched && job.next_attempt > now) return Outcome::kOnItsWay;
    // The certificate of its order may have gone with the run before, which tells nothing of the authority.
    const bool refused = !events.empty() && events.back().event == "cert_order_fail";
    if (outcome == Outcome::kUnfetched && job.died && refused) return Outcome::kRefused;
    const bool cut = outcome == Outcome::kOnItsWay && IsCutShort(events) && !job.verified && !goes_on;
    return cut ? Outcome::kCutShort : outcome;
}

bool IsCutShort(std::span<const history::Event> events) {
    return !events.empty() &&
           (events.back().event == "challenge_success" || events.back().event == "cert_order_success");
}

bool IsFailedCheck(const history::Event& event) {
    return IsFailure(event) && (event.event == "challenge_fail" || event.event == "challenge_req_attempt");
}

}  // namespace zelvek
