// Lists of jobs: by number, and by what needs attention.
#include <algorithm>
#include <map>
#include <vector>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_fields.h"
#include "zelvek/panel/living_runs.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/job_names.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using job_lists::Kind;
using job_lists::Place;

constexpr int kSoonDays = 30;
constexpr int kMostDays = 36500;

jobs::State JobStateNamed(const std::string& name) {
    static const std::map<std::string, jobs::State> states{{"", jobs::State::kAny},
                                                           {"verified", jobs::State::kVerified},
                                                           {"failed", jobs::State::kFailed},
                                                           {"running", jobs::State::kRunning},
                                                           {"waiting", jobs::State::kWaiting},
                                                           {"paused", jobs::State::kPaused}};
    const auto state = states.find(name);
    if (state != states.end()) return state->second;
    throw Error(
        Code::kValue, "state", name,
        "a state is \"verified\", \"failed\", \"running\", \"waiting\" or \"paused\", not \"" + name + "\"");
}

void ByNumber(Services& services, const Query& query, XmlAnswer& answer) {
    const Page page(query);
    const jobs::State state = JobStateNamed(query.parameters.Get("state"));
    LivingRuns transaction(services);
    for (const Job& job :
         jobs::List(transaction, {page.after, page.limit, query.parameters.Get("user_name"), state})) {
        XmlAnswer::Element element = answer.Elem();
        WriteFields(job, JobField::kInLists, element.Value("id", job.id));
    }
    transaction.Commit();
}

/// Lists one after the other, and the time that bounds them where one does.
struct Sequence {
    std::vector<Kind> kinds;
    std::string until = {};
};

std::string InDays(int days) { return vek_date::DateTime().AddDays(days).AsDateTime(); }

/// The words for what a list can have, as people choose them.
Sequence SequenceNamed(const std::string& state, bool of_user) {
    // A user's waiting jobs stand in one order, whether they have failed or not.
    const std::vector<Kind> waiting =
        of_user ? std::vector{Kind::kWaiting} : std::vector{Kind::kFailing, Kind::kOnItsWay};
    if (state.empty() || state == "all") {
        std::vector<Kind> all{Kind::kFailed};
        all.insert(all.end(), waiting.begin(), waiting.end());
        all.insert(all.end(), {Kind::kRunning, Kind::kVerified, Kind::kPaused});
        return {all};
    }
    if (state == "waiting") return {waiting};
    if (state == "failing") return {{Kind::kFailed, waiting.front()}};
    if (state == "failed") return {{Kind::kFailed}};
    if (state == "running") return {{Kind::kRunning}};
    if (state == "verified") return {{Kind::kVerified}};
    if (state == "paused") return {{Kind::kPaused}};
    if (state == "due") return {{Kind::kDue}, InDays(0)};
    if (state == "expiring") return {{Kind::kEnding}, InDays(kSoonDays)};
    throw Error(Code::kValue, "state", state,
                "a state is \"due\", \"waiting\", \"failed\", \"running\", \"verified\", \"expiring\","
                " \"paused\" or \"all\", not \"" +
                    state + "\"");
}

Sequence SequenceOf(const Query& query, const std::string& user) {
    if (!query.parameters.Has("expires_within"))
        return SequenceNamed(query.parameters.Get("state"), !user.empty());
    const int days = Number(query, "expires_within");
    if (days < 0 || days > kMostDays)
        throw Error(Code::kValue, "expires_within", str::Str(days),
                    "\"expires_within\" is a number of days, up to 36500");
    return {{Kind::kEnding}, InDays(days)};
}

/// Where in a sequence of lists a page begins.
struct Start {
    std::size_t list = 0;
    Place after = {};
};

std::string TextOf(std::size_t list, const Place& place) {
    return str::Str(static_cast<int>(list)) + "/" + place.key + "/" + str::Str(place.id);
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// In which of the sequence's lists the job is now, and where.
Start StartAfterJob(Transaction& transaction, const Sequence& sequence, const Query& query) {
    const std::string& user = query.parameters.Get("user_name");
    const Job job = JobOfUserAsked(transaction, query, Number(query, "after"));
    const Kind kind = job_lists::KindOf(job);
    const auto& kinds = sequence.kinds;
    auto found = std::find(kinds.begin(), kinds.end(), kind);
    if (found == kinds.end() && (kind == Kind::kFailing || kind == Kind::kOnItsWay))
        found = std::find(kinds.begin(), kinds.end(), Kind::kWaiting);
    const auto list = found == kinds.end() ? kinds.begin() : found;
    return {static_cast<std::size_t>(list - kinds.begin()), job_lists::PlaceOf({*list, user}, job)};
}

/// "LIST/KEY/ID", as a page has given it, or a job's number.
Start StartOf(Transaction& transaction, const Query& query, const Sequence& sequence) {
    std::string text = query.parameters.Get("after");
    if (text.empty()) return {};
    if (IsNumber(text)) return StartAfterJob(transaction, sequence, query);
    const std::string given = text;
    const std::string list = str::GetWord(text, '/');
    const bool whole = text.find('/') != std::string::npos;
    const std::string id = str::RGetWord(text, '/');
    const bool known = IsNumber(list) && str::Int(list) < static_cast<int>(sequence.kinds.size());
    if (!whole || !known || !IsNumber(id)) {
        throw Error(Code::kValue, "after", given,
                    "\"" + given + "\" is neither a job nor a place in this list");
    }
    return {static_cast<std::size_t>(str::Int(list)), {text, str::Int(id)}};
}

void AddEntry(Transaction& transaction, XmlAnswer& answer, const Job& job, const std::string& place) {
    XmlAnswer::Element element = answer.Elem();
    WriteFields(job, JobField::kInLists, element.Value("id", job.id).Value("place", names::MakeText(place)));
    WriteLastFailure(transaction, job, element);
}

int LimitOf(const Query& query) {
    constexpr int kMost = 1000;
    const int limit = query.parameters.Has("limit") ? Number(query, "limit") : kMost;
    if (limit >= 1 && limit <= kMost) return limit;
    throw Error(Code::kValue, "limit", str::Str(limit), "\"limit\" is a number from 1 to 1000");
}

/// The jobs that have one name, by number.
void WithName(Transaction& transaction, const Query& query, XmlAnswer& answer) {
    const std::string name = names::Canonical(query.parameters.Get("name"), "name");
    const std::string& user = query.parameters.Get("user_name");
    int after = query.parameters.Get("after").empty() ? 0 : Number(query, "after");
    int rest = LimitOf(query);
    for (bool more = true; more && rest > 0;) {
        const std::vector<int> some = job_names::JobsOf(transaction, name, after, rest);
        more = some.size() == static_cast<std::size_t>(rest);
        for (const int id : some) {
            after = id;
            const Job job = jobs::FindShown(transaction, id);
            if (!user.empty() && job.user_name != user) continue;
            AddEntry(transaction, answer, job, str::Str(id));
            --rest;
        }
    }
}

/// "NAME/ID", as a page has given it.
Place PlaceIn(const Query& query) {
    std::string text = query.parameters.Get("after");
    if (text.empty()) return {};
    const std::string id = str::RGetWord(text, '/');
    if (IsNumber(id)) return {text, str::Int(id)};
    throw Error(Code::kValue, "after", query.parameters.Get("after"),
                "\"" + query.parameters.Get("after") + "\" is no place in this list");
}

/// Those whose certificates' names have this beginning, in the order of the names.
void InOrderOfNames(Transaction& transaction, const Query& query, XmlAnswer& answer) {
    const std::string begin = names::MakeText(query.parameters.Get("begin"));
    const job_lists::ByName selection{begin, query.parameters.Get("user_name"), PlaceIn(query),
                                      LimitOf(query)};
    for (const Job& job : job_lists::SomeByName(transaction, selection))
        AddEntry(transaction, answer, job, job.certname + "/" + str::Str(job.id));
}

void InSequence(Transaction& transaction, const Query& query, XmlAnswer& answer) {
    const std::string& user = query.parameters.Get("user_name");
    const Sequence sequence = SequenceOf(query, user);
    const Start start = StartOf(transaction, query, sequence);
    job_lists::Selection selection{Kind::kFailed, user, start.after, LimitOf(query), sequence.until};
    for (std::size_t list = start.list; list < sequence.kinds.size() && selection.limit > 0; ++list) {
        selection.kind = sequence.kinds[list];
        for (const Job& job : job_lists::Some(transaction, selection)) {
            AddEntry(transaction, answer, job, TextOf(list, job_lists::PlaceOf(selection, job)));
            --selection.limit;
        }
        selection.after = {};
    }
}

void ByAttention(Services& services, const Query& query, XmlAnswer& answer) {
    const bool name = query.parameters.Has("name");
    const bool names = query.parameters.Has("begin") || query.parameters.Get("order") == "name";
    if ((name ? 1 : 0) + (names ? 1 : 0) + (query.parameters.Has("expires_within") ? 1 : 0) +
            (query.parameters.Get("state").empty() ? 0 : 1) >
        1) {
        throw Error(
            Code::kValue,
            "a list is by a name, in the order of names, by a state or by the days until certificates end: "
            "choose one");
    }
    LivingRuns transaction(services);
    if (name) {
        WithName(transaction, query, answer);
    } else if (names) {
        InOrderOfNames(transaction, query, answer);
    } else {
        InSequence(transaction, query, answer);
    }
    transaction.Commit();
}

}  // namespace

Functions functions::JobLists() {
    return {{"zelvek.job.list", Right::kRead, &ByNumber},
            {"zelvek.job.attention", Right::kRead, &ByAttention}};
}

}  // namespace zelvek
