#include "zelvek/jobs/reason.h"

#include <algorithm>
#include <span>

#include "vek/date.h"
#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/finding_state.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/text.h"
#include "zelvek/jobs/advice.h"
#include "zelvek/jobs/authority_answer.h"
#include "zelvek/jobs/outcome.h"

namespace zelvek {

namespace {

using findings::Finding;
using history::Event;

constexpr const char* kTimedOut = "timeout_error";
constexpr int kForbidden = 403;
constexpr int kSameRun = 30;  // seconds between the failures of one run; another run comes later

std::string Quoted(const std::string& words) { return words.empty() ? "" : " (\"" + words + "\")"; }

/// One line of a text that somebody else has written.
std::string Line(const std::string& text) { return Printable(TextOfHtml(text)); }

bool HasFailed(const Event& event) { return event.state == "failed"; }

bool IsOfACheck(const Event& event) { return event.event.starts_with("challenge_"); }

bool OfOneRun(const Event& first, const Event& second) {
    try {
        return vek_date::DateTime(second.time).SecondsSince(vek_date::DateTime(first.time)) <= kSameRun;
    } catch (const vek_err::Error&) {
        return false;
    }
}

/// An order whose check has failed without a word is not ready to be finalized, which hides what went before.
const Event* HiddenBy(const std::vector<Event>& events, std::size_t last) {
    const AuthorityAnswer answer = ReadAnswer(events[last]);
    const bool not_ready =
        answer.type == "orderNotReady" || (answer.type.empty() && answer.code == kForbidden);
    if (events[last].event != "cert_order_fail" || !not_ready) return nullptr;
    for (std::size_t at = last; at > 0 && IsOfACheck(events[at - 1]); --at) {
        if (IsFailedCheck(events[at - 1])) return &events[at - 1];
    }
    return nullptr;
}

/// A request without a nonce is refused, which hides why there was none.
const Event* NonceTrouble(const std::vector<Event>& events, std::size_t last) {
    if (last == 0 || !HasFailed(events[last - 1]) || !OfOneRun(events[last - 1], events[last]))
        return nullptr;
    const Event& before = events[last - 1];
    const bool of_a_nonce = before.event == "acme_request_error" || before.event == "http_query_error";
    return of_a_nonce && OutcomeOf({before}, false) != Outcome::kRefused ? &before : nullptr;
}

/// What the last run has failed with; null where its last event is no failure.
const Event* Failure(const std::vector<Event>& events) {
    if (events.empty() || !HasFailed(events.back())) return nullptr;
    const std::size_t last = events.size() - 1;
    if (const Event* hidden = HiddenBy(events, last)) return hidden;
    if (const Event* trouble = NonceTrouble(events, last)) return trouble;
    return &events.back();
}

/// What a finding says, as a part of a sentence; empty where all was as it should be.
std::string Told(const Finding& finding) {
    const std::string name = Printable(finding.name);
    const std::string place = Printable(finding.place);
    const std::string detail = Line(finding.detail);
    const auto is = [&](const char* state) { return finding.state == state; };
    if (is(finding_state::kOther)) {
        return name + " points to " + place + ", where instead of this server's answer stood: " + detail;
    }
    if (is(finding_state::kRedirect))
        return name + " points to " + place + ", which sends visitors on to " + detail;
    if (is(finding_state::kMissing))
        return "the name server " + place + " does not have the TXT record of " + name;
    if (is(finding_state::kUnreached)) return place + " does not answer for " + name + ": " + detail;
    if (is(finding_state::kNoAddress)) return name + " has no address in the public DNS";
    if (is(finding_state::kNotPublic)) {
        return name + " points to " + place + ", which is no address that others reach";
    }
    if (is(finding_state::kNotLookedUp)) return "no public name server told the addresses of " + name;
    return "";
}

/// What tells most: an authority follows a redirect, so that may be as it should be.
std::string Told(const std::vector<Finding>& findings) {
    std::string redirect;
    for (const Finding& finding : findings) {
        std::string told = Told(finding);
        if (finding.state == finding_state::kRedirect) {
            redirect = told;
        } else if (!told.empty()) {
            return told;
        }
    }
    return redirect;
}

std::string DetailOf(const Finding& finding) {
    const std::string told = Told(finding);
    const std::string good =
        "at " + Printable(finding.place) + " stands what is to stand there for " + Printable(finding.name);
    return (told.empty() ? good : told) + " (looked at " + Printable(finding.time) + " UTC)";
}

/// The name that was checked, where there is only one.
std::string Checked(const Job& job) {
    return job.aliases.find(' ') == std::string::npos && !job.aliases.empty() ? Printable(job.aliases)
                                                                              : "one of the names";
}

std::string At(const std::string& time) { return "at " + Printable(time) + " UTC"; }

std::string NextRun(const JobFacts& facts) {
    const Job& job = facts.job;
    const std::string what = job.failed ? "the job begins anew " : "the next run is due ";
    if (job.due <= facts.now) return what + "now";
    const std::string reason = job.postponed.empty() ? "" : ", since " + Line(job.postponed);
    return what + At(job.due) + reason;
}

void Capitalise(std::string& sentence) {
    if (!sentence.empty() && sentence.front() >= 'a' && sentence.front() <= 'z')
        sentence.front() = static_cast<char>(sentence.front() - 'a' + 'A');
}

/// The parts that are there, as one sentence.
std::string Sentence(const std::vector<std::string>& parts) {
    std::string sentence;
    for (const std::string& part : parts) str::inpl::Append(sentence, part, "; ");
    Capitalise(sentence);
    return sentence + ".";
}

/// What failed, and what helps.
struct Trouble {
    std::string problem;
    std::string remedy;
    std::string words;  // the authority's or somebody else's
};

/// The events up to this one of them.
std::span<const Event> Until(const JobFacts& facts, const Event& event) {
    return {facts.events.data(), static_cast<std::size_t>(&event - facts.events.data()) + 1};
}

Trouble TroubleOf(const JobFacts& facts, const Event& failure) {
    AuthorityAnswer answer = ReadAnswer(failure);
    // Without a detail the event itself is all that there is.
    const Advice advice = AdviceFor({failure.event, answer.type, answer.code, facts.job.check_type,
                                     MayHaveIssued(Until(facts, failure))});
    const std::string name = Checked(facts.job);
    Trouble trouble{str::Replace(advice.problem, "%s", name), str::Replace(advice.remedy, "%s", name),
                    answer.words};
    const std::string found = IsFailedCheck(failure) ? Told(facts.findings) : "";
    trouble.problem += found.empty() ? Quoted(trouble.words) : ": " + found;
    return trouble;
}

Reason Failed(const JobFacts& facts, const Event& failure) {
    const Trouble trouble = TroubleOf(facts, failure);
    Reason reason{Sentence({trouble.problem, trouble.remedy, NextRun(facts)}), {}};
    if (!trouble.words.empty())
        reason.details.push_back("Told with \"" + Printable(failure.event) + "\": " + trouble.words);
    return reason;
}

std::string Retry(const Job& job) {
    return "\"zelvek job retry " + str::Str(job.id) + "\" tries again at once";
}

Reason Refused(const JobFacts& facts) {
    return {
        Sentence({"the service has refused something to the last run (\"" + Line(facts.job.refusal) + "\")",
                  "mend that, and " + Retry(facts.job), NextRun(facts)}),
        {}};
}

/// The last thing that was told is that all names are proved, or that the order is fulfilled.
bool WasCutShort(const JobFacts& facts) { return IsCutShort(facts.events) && facts.job.challenges.empty(); }

/// The program has looked for its records, and will look again.
bool IsPaused(const JobFacts& facts) {
    const Job& job = facts.job;
    return job.check_type == "dns" && !job.challenges.empty() && job.next_attempt > facts.now;
}

Reason Paused(const JobFacts& facts) {
    const std::string found = Told(facts.findings);
    return {Sentence({"public name servers do not show all of the job's TXT records" +
                          (found.empty() ? "" : ": " + found),
                      "see that all name servers of the zone take the records over",
                      "they are looked up again " + At(facts.job.next_attempt)}),
            {}};
}

Reason Waiting(const JobFacts& facts) {
    const Job& job = facts.job;
    if (!job.refusal.empty()) return Refused(facts);
    const Event* failure = Failure(facts.events);
    if (failure != nullptr && job.failures > 0) return Failed(facts, *failure);
    if (IsPaused(facts)) return Paused(facts);
    if (job.failures > 0 && WasCutShort(facts)) {
        return {Sentence({"the last run was ended while the authority finished the order", NextRun(facts)}),
                {}};
    }
    if (job.failures > 0) {
        return {Sentence({"the last run ended without saying why", "look into the log of the runs",
                          NextRun(facts)}),
                {}};
    }
    const bool published = job.check_type == "dns" && !job.challenges.empty();
    if (published) return {Sentence({"the job's TXT records are published", NextRun(facts)}), {}};
    if (!job.expires.empty()) return {Sentence({"the certificate is being renewed", NextRun(facts)}), {}};
    return {Sentence({"nothing is wrong", NextRun(facts)}), {}};
}

/// What kept a job from its certificate until its day was over.
const Event* BeforeTheEnd(const std::vector<Event>& events) {
    const auto before = std::find_if(events.rbegin(), events.rend(), [](const Event& event) {
        return HasFailed(event) && event.event != kTimedOut;
    });
    if (before == events.rend()) return nullptr;
    const std::vector<Event> until(events.begin(), before.base());
    const Event* hidden = HiddenBy(until, until.size() - 1);
    return hidden == nullptr ? &*before : &events[static_cast<std::size_t>(hidden - until.data())];
}

Reason TimedOut(const JobFacts& facts) {
    const Event* before = BeforeTheEnd(facts.events);
    if (before == nullptr) return Failed(facts, facts.events.back());
    Trouble trouble = TroubleOf(facts, *before);
    trouble.problem.front() = 't';  // they all begin with "The"
    return {Sentence({"the job had no certificate a day after its start", trouble.problem, trouble.remedy,
                      NextRun(facts)}),
            {}};
}

Reason Stopped(const JobFacts& facts) {
    if (!facts.job.refusal.empty()) return Refused(facts);
    if (!facts.events.empty() && facts.events.back().event == kTimedOut) return TimedOut(facts);
    if (const Event* failure = Failure(facts.events)) return Failed(facts, *failure);
    return {Sentence({"the job was stopped", "look at its history", NextRun(facts)}), {}};
}

Reason OldOneServed(const served::Served& served) {
    return {
        Sentence({"the new certificate is installed, but " + Line(served.detail),
                  "reload that web server, and see that its configuration names the certificate's folder"}),
        {"Looked at " + Printable(served.time) + " UTC"}};
}

Reason Installed(const JobFacts& facts) {
    const Job& job = facts.job;
    const std::string renewal = job.renew.empty() ? "" : "it is renewed " + At(job.renew);
    if (facts.reload) {
        return {Sentence({"the certificate is installed, but the web server has not taken it over (\"" +
                              Line(facts.reload->reason) + "\")",
                          "mend that; its reload is tried again " + At(facts.reload->next)}),
                {renewal.empty() ? "" : "The certificate ends " + At(job.expires) + ", " + renewal}};
    }
    if (facts.served && facts.served->state == served::kOlder) return OldOneServed(*facts.served);
    if (job.expires.empty()) return {Sentence({"the certificate is installed", renewal}), {}};
    if (job.expires <= facts.now) {
        return {Sentence({"the certificate has ended " + At(job.expires),
                          "\"zelvek job renew " + str::Str(job.id) + "\" asks for a new one at once"}),
                {}};
    }
    return {Sentence({"the certificate is installed and ends " + At(job.expires), renewal}), {}};
}

Reason Paused(const Job& job) {
    const bool installed = job.verified && !job.expires.empty();
    return {Sentence({"the job is paused: it is neither run nor renewed",
                      "\"zelvek job resume " + str::Str(job.id) + "\" lets it go on"}),
            {installed ? "The certificate is installed and ends " + At(job.expires) : ""}};
}

Reason ByState(const JobFacts& facts) {
    const Job& job = facts.job;
    if (job.processing && !job.verified) return {"A run of the job is under way.", {}};
    if (job.paused && !job.failed) return Paused(job);
    if (job.verified) return Installed(facts);
    return job.failed ? Stopped(facts) : Waiting(facts);
}

}  // namespace

Reason ReasonOf(const JobFacts& facts) {
    Reason reason = ByState(facts);
    const Job& job = facts.job;
    if (!job.verified) {
        for (const Finding& finding : facts.findings) reason.details.push_back(DetailOf(finding));
        if (!job.expires.empty())
            reason.details.push_back("The certificate of before is still installed, and ends " +
                                     At(job.expires));
        if (!job.processing && !job.paused && job.failures > 0) reason.details.push_back(Retry(job));
    }
    if (job.verified && facts.served && facts.served->state == served::kUnreachable) {
        reason.details.push_back("Whether the web server shows the certificate could not be seen: " +
                                 Line(facts.served->detail));
    }
    std::erase(reason.details, "");
    return reason;
}

}  // namespace zelvek
