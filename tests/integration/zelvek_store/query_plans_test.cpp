// How SQLite finds what the store's statements ask for: by an index, so that work grows with what is found.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>

#include "engine.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/answered.h"
#include "zelvek/store/deliveries.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/job_authorities.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/job_names.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/page_sessions.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/reloads.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"
#include "zelvek/store/served.h"
#include "zelvek/store/tallies.h"
#include "zelvek/store/usage.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kJobs = 2000;

// Indexes that hold just what is looked for, so that they may be read from one end to the other.
const std::set<std::string> kHoldsWhatIsLookedFor{
    "job_running",          "job_running_by_user",  "job_of_unknown_end",  "job_stopped",
    "job_failed",           "job_verified",         "job_waiting",         "job_due",
    "publication_unwanted", "publication_not_kept", "publication_missing", "authority_use_open",
    "recipient_handed",     "job_paused",           "job_failing",         "job_on_its_way",
    "job_by_end",           "job_ending",           "examination_by_time"};

// Indexes over times, of which all that is older, or newer, than a time is looked for, and over names, of
// which all with one beginning are.
const std::set<std::string> kOverTimes{
    "answered_query_by_time",      "csr_by_time",        "job_by_last_run",   "job_by_renewal",
    "job_event_by_time",           "problem_by_time",    "reload_by_next",    "authority_use_by_time",
    "job_by_ask_renewal",          "job_by_notice",      "recipient_by_next", "delivery_by_recipient",
    "sqlite_autoindex_job_name_1", "site_check_by_next", "page_deed_by_time", "job_by_certname"};

// Tables that stay small: the sweep forgets readers that have died, "waiting" is what is due, and "busy" has
// the users with runs under way; there are few authorities, and few words
// and bounds by which runs and notifications are counted; of days there are as many as histories are kept.
const std::set<std::string> kSmallTables{"reader",    "waiting",      "busy",          "authority_count",
                                         "run_count", "run_duration", "problem_count", "run_day"};

// The index of which just what is looked for is read, so that it may be sorted: the jobs that are due, for
// users to take turns.
const std::string kDue = "job_due";

// Indexes over all that a user has, who may have most of it: not for those in one state, or of one
// certificate, among a user's jobs.
const std::set<std::string> kAllOfAUser{"job_by_user"};

/// One line of a query plan.
struct Step {
    std::string way;    // "SCAN" or "SEARCH", or another word
    std::string table;  // empty for other words
    std::string index;  // empty for none and for the table's own number
    std::string limits;

    bool HasValue() const { return limits.find("=?") != std::string::npos; }
};

Step Parse(const std::string& line) {
    static const std::regex form(
        R"((SCAN|SEARCH) (\w+)(?: USING (?:AUTOMATIC )?(?:COVERING )?(?:INDEX ?(\w*)|INTEGER PRIMARY KEY))?(?: \((.*)\))?.*)");
    std::smatch found;
    if (!std::regex_match(line, found, form)) return {line, "", "", ""};
    return {found[1], found[2], found[3], found[4]};
}

/// A page of a whole table has no condition but where it begins, so it reads no row that it does not give.
bool IsPage(const std::string& statement) {
    static const std::regex form(R"( WHERE [a-z.]+ > :after ORDER BY [a-z.]+ LIMIT :most$)");
    static const std::regex backwards(R"( WHERE [a-z.]+ < :before ORDER BY [a-z.]+ DESC LIMIT :most$)");
    return std::regex_search(statement, form) || std::regex_search(statement, backwards);
}

/// The same of the open notifications, by the index that holds just these.
bool IsPageOfUnsolved(const Step& step, const std::string& statement) {
    static const std::regex form(R"( WHERE unsolved = 1 AND number > :after ORDER BY number LIMIT :most$)");
    return step.index == "problem_unsolved" && std::regex_search(statement, form);
}

/// Folders come after the users in their index, which holds all of a user's jobs.
bool ReadsAllOfAUser(const Step& step) {
    return kAllOfAUser.contains(step.index) ||
           (step.index == "job_by_folder" && step.limits.find("folder=?") == std::string::npos);
}

bool AsksForFewOfAUser(const std::string& statement) {
    static const std::regex form(R"(\.(verified|failed|processing|paused) = [01]|folder = :folder )");
    return std::regex_search(statement, form);
}

/// Some of the jobs that wait are looked for, by a time of theirs.
bool AsksForATime(const std::string& statement) {
    static const std::regex form(R"((due|last_run) [<>=]+ [:'])");
    return statement.find("processing = 0") != std::string::npos && std::regex_search(statement, form);
}

/// The uses of one subject are looked for, not those of a time.
bool AsksForASubject(const std::string& statement) {
    return statement.find("subject = :subject") != std::string::npos;
}

/// Whether the step may read much more than what is looked for.
bool ReadsTooMuch(const Step& step, const std::string& statement) {
    if (step.table.empty() || kSmallTables.contains(step.table)) return false;
    if (ReadsAllOfAUser(step) && AsksForFewOfAUser(statement)) return true;
    if (kOverTimes.contains(step.index) && AsksForASubject(statement)) return true;
    const bool running = step.index == "job_running_by_user";  // whatever the time
    if (step.way == "SCAN" && AsksForATime(statement) && step.table == "job" && !running) return true;
    if (step.index == kDue && statement.find(" AND job.failures") != std::string::npos) return true;
    if (kHoldsWhatIsLookedFor.contains(step.index)) return false;
    if (step.way == "SCAN") return step.table != "CONSTANT";
    if (step.HasValue() || kOverTimes.contains(step.index) || IsPage(statement)) return false;
    if (IsPageOfUnsolved(step, statement)) return false;
    const bool first_of_all = step.limits.empty();  // the smallest or the largest of an index
    const bool first_few =
        statement.find("< (SELECT min(number) FROM problem) + :limit") != std::string::npos;
    return !first_of_all && !first_few;
}

std::vector<std::string> PlanOf(SQLite::Database& database, const std::string& statement) {
    std::vector<std::string> lines;
    SQLite::Statement plan(database, "EXPLAIN QUERY PLAN " + statement);
    while (plan.executeStep()) lines.push_back(plan.getColumn("detail").getString());
    return lines;
}

/// What is wrong with the plan of a statement.
std::vector<std::string> FindingsOf(const std::vector<std::string>& plan, const std::string& statement) {
    const bool few = std::any_of(plan.begin(), plan.end(),
                                 [](const std::string& line) { return Parse(line).index == kDue; });
    std::vector<std::string> findings;
    for (const std::string& line : plan) {
        const bool sorts = line.find("TEMP B-TREE") != std::string::npos && !few;
        const bool small = kSmallTables.contains(Parse(line).table);
        const bool builds_an_index = line.find("AUTOMATIC") != std::string::npos && !small;
        if (sorts || builds_an_index || ReadsTooMuch(Parse(line), statement)) {
            findings.push_back(line + " | " + statement);
        }
    }
    return findings;
}

using Operation = std::function<void(Transaction&)>;
using Operations = std::map<std::string, Operation>;

void ListAll(Transaction& transaction) {
    for (const std::string user : {"", "anna"}) {
        for (const auto state : {jobs::State::kAny, jobs::State::kVerified, jobs::State::kFailed,
                                 jobs::State::kRunning, jobs::State::kWaiting, jobs::State::kPaused}) {
            jobs::List(transaction, {0, 10, user, state});
        }
    }
}

void ListEveryKind(Transaction& transaction) {
    using job_lists::Kind;
    for (const std::string user : {"", "anna"}) {
        for (const Kind kind : {Kind::kFailed, Kind::kFailing, Kind::kOnItsWay, Kind::kRunning,
                                Kind::kVerified, Kind::kPaused, Kind::kWaiting, Kind::kDue, Kind::kEnding}) {
            job_lists::Some(transaction, {kind, user, {}, 10, "t"});
        }
    }
}

void CountEveryKind(Transaction& transaction) {
    for (const job_lists::Kind kind : job_lists::kByAttention) job_lists::Count(transaction, kind);
}

void SaveWith(Transaction& transaction, const std::string& key) {
    Job job = jobs::Find(transaction, 1);
    job.acmekey = key;
    jobs::Save(transaction, job);
}

long long SomeProblem(Transaction& transaction) {
    problems::Raise(transaction, {.name = "n"});
    return problems::List(transaction, problems::State::kAny, 0, 1).at(0).number;
}

Operations JobOperations() {
    return {
        {"jobs::Add", [](Transaction& transaction) { jobs::Add(transaction, FilledJob("a")); }},
        {"jobs::OfFolder", [](Transaction& transaction) { jobs::OfFolder(transaction, "anna", "1 folder"); }},
        {"jobs::NameFolders",
         [](Transaction& transaction) {
             transaction.Prepare("INSERT INTO setting (name, value) VALUES ('folders_missing', '')").Run();
             jobs::NameFolders(transaction);
         }},
        {"jobs::Select",
         [](Transaction& transaction) {
             jobs::Select(transaction, "job.id = :id", [](Statement& select) { select.With(1); });
         }},
        {"job_lists::Some", &ListEveryKind},
        {"job_lists::SomeByName",
         [](Transaction& transaction) {
             for (const std::string user : {"", "anna"})
                 job_lists::SomeByName(transaction, {"a", user, {}, 10});
         }},
        {"job_lists::Count", &CountEveryKind},
        {"job_names::Set", [](Transaction& transaction) { job_names::Set(transaction, 1, "a.example"); }},
        {"job_names::JobsOf", [](Transaction& transaction) { job_names::JobsOf(transaction, "a", 0, 10); }},
        {"job_names::Below",
         [](Transaction& transaction) { job_names::Below(transaction, "a", "anna", {}, 10); }},
        {"job_names::FillIn",
         [](Transaction& transaction) {
             transaction.Prepare("INSERT INTO setting (name, value) VALUES ('names_missing', '')").Run();
             job_names::FillIn(transaction);
         }},
        {"served::Set", [](Transaction& transaction) { served::Set(transaction, "anna", "f", {}); }},
        {"served::Find", [](Transaction& transaction) { served::Find(transaction, "anna", "f"); }},
        {"served::Forget", [](Transaction& transaction) { served::Forget(transaction, "anna", "f"); }},
        {"domains::Remove", [](Transaction& transaction) { domains::Remove(transaction, 1); }},
        {"restarts::Pause", [](Transaction& transaction) { restarts::Pause(transaction, 1); }},
        {"restarts::Resume",
         [](Transaction& transaction) { restarts::Resume(transaction, 1, "2026-01-01 00:00:00"); }},
        {"jobs::Edit", [](Transaction& transaction) { jobs::Edit(transaction, jobs::Find(transaction, 1)); }},
        {"history::LastFailure", [](Transaction& transaction) { history::LastFailure(transaction, 1); }},
        {"jobs::Find", [](Transaction& transaction) { jobs::Find(transaction, 1); }}  // namespace
        ,
        {"jobs::FindShown", [](Transaction& transaction) { jobs::FindShown(transaction, 1); }},
        {"jobs::List", &ListAll},
        {"jobs::Save", [](Transaction& transaction) { SaveWith(transaction, "new"); }},
        {"runs::Claim", [](Transaction& transaction) { runs::Claim(transaction, 1, Living()); }},
        {"runs::ClaimIfDue",
         [](Transaction& transaction) { runs::ClaimIfDue(transaction, 1, Living(), "9"); }},
        {"runs::Hold", [](Transaction& transaction) { runs::Hold(transaction, 1, Dead()); }},
        {"runs::JobOf", [](Transaction& transaction) { runs::JobOf(transaction, Living()); }},
        {"runs::ForgetDeadProcesses",
         [](Transaction& transaction) {
             runs::Hold(transaction, 1, Dead());
             runs::ForgetDeadProcesses(transaction);
         }},
        {"jobs::Running", [](Transaction& transaction) { jobs::Running(transaction); }},
        {"runs::Due", [](Transaction& transaction) { runs::Due(transaction, "2026-01-01 00:00:00", 4); }},
        {"runs::WaitingTooLong",
         [](Transaction& transaction) {
             runs::WaitingTooLong(transaction, "2026-01-01 00:00:00", "2026-01-02 00:00:00", 4);
         }},
        {"runs::NextDue",
         [](Transaction& transaction) { runs::NextDue(transaction, "2026-01-01 00:00:00"); }},
        {"runs::Postpone", [](Transaction& transaction) { runs::Postpone(transaction, 1, "t", "r"); }},
        {"runs::SetTimes", [](Transaction& transaction) { runs::SetTimes(transaction, FilledJob("a")); }},
        {"runs::Free",
         [](Transaction& transaction) { runs::Free(transaction, jobs::FindShown(transaction, 1)); }},
        {"restarts::SetValidity",
         [](Transaction& transaction) {
             restarts::SetValidity(transaction, "anna", "f", {"e", "r"});
         }},
        {"restarts::SetRenewal",
         [](Transaction& transaction) {
             Job asked;
             asked.user_name = "anna";
             asked.folder = "f";
             restarts::SetRenewal(transaction, asked, "r", "a");
         }},
        {"restarts::PlannedBetween",
         [](Transaction& transaction) { restarts::PlannedBetween(transaction, "s", "t"); }},
        {"restarts::RenewalToAskFor",
         [](Transaction& transaction) { restarts::RenewalToAskFor(transaction, "t", 10); }},
        {"restarts::RenewalDue",
         [](Transaction& transaction) { restarts::RenewalDue(transaction, "t", 10); }},
        {"restarts::StoppedDue",
         [](Transaction& transaction) { restarts::StoppedDue(transaction, "t", 10); }},
        {"jobs::SetRefusal", [](Transaction& transaction) { jobs::SetRefusal(transaction, 1, "r"); }},
        {"restarts::ToRetry",
         [](Transaction& transaction) {
             for (const std::string user : {"", "anna"}) restarts::ToRetry(transaction, 0, 10, user);
         }},
        {"jobs::NoticeDue", [](Transaction& transaction) { jobs::NoticeDue(transaction, "t", 10); }},
        {"jobs::SetNotice",
         [](Transaction& transaction) { jobs::SetNotice(transaction, jobs::FindShown(transaction, 1)); }},
        {"restarts::Retry", [](Transaction& transaction) { restarts::Retry(transaction, 1, "t"); }},
        {"restarts::OfUnknownEnd", [](Transaction& transaction) { restarts::OfUnknownEnd(transaction, 10); }},
        {"restarts::ToRenew",
         [](Transaction& transaction) {
             for (const std::string user : {"", "anna"}) {
                 for (const std::string before : {"", "t"})
                     restarts::ToRenew(transaction, {0, 10, user, before});
             }
         }},
        {"restarts::StartAnew",
         [](Transaction& transaction) { restarts::StartAnew(transaction, 1, "t", true); }},
        {"restarts::Revive", [](Transaction& transaction) { restarts::Revive(transaction, 1); }},
        {"jobs::Remove", [](Transaction& transaction) { jobs::Remove(transaction, 2); }},
        {"accounts::SetOfJob",
         [](Transaction& transaction) {
             accounts::SetOfJob(transaction, 3, {"k", "key", "m"});
             accounts::SetOfJob(transaction, 3, {});
         }},
        {"accounts::Default", [](Transaction& transaction) { accounts::Default(transaction, "ambrin"); }},
        {"job_authorities::Default", [](Transaction& transaction) { job_authorities::Default(transaction); }},
        {"job_authorities::SetDefault",
         [](Transaction& transaction) { job_authorities::SetDefault(transaction, "a"); }},
        {"job_authorities::Counts", [](Transaction& transaction) { job_authorities::Counts(transaction); }},
        {"accounts::MakeDefault",
         [](Transaction& transaction) {
             accounts::MakeDefault(transaction, 4);
             accounts::MakeDefault(transaction, 5);
         }},
        {"history::Add",
         [](Transaction& transaction) {
             history::Add(transaction, 1, {"t", "s", "e", "d"});
         }},
        {"history::Of", [](Transaction& transaction) { history::Of(transaction, 1); }},
        {"history::LastFailure", [](Transaction& transaction) { history::LastFailure(transaction, 1); }},
        {"history::Shorten",
         [](Transaction& transaction) {
             for (int i = 0; i < 3; ++i) history::Add(transaction, 1, {"t", "s", "e", "d"});
             history::Shorten(transaction, 1, 1);
         }},
        {"history::RemoveOlder", [](Transaction& transaction) { history::RemoveOlder(transaction, "a", 5); }},
    };  // namespace zelvek::testing
}

Operations OtherOperations() {
    publications::Publication entry;
    entry.item = {"z", "n", "v"};
    entry.user_name = "anna";
    entry.job = 1;
    entry.publisher = Dead();
    return {
        {"answered::Put", [](Transaction& transaction) { answered::Put(transaction, "i", "a", "t"); }},
        {"answered::Find", [](Transaction& transaction) { answered::Find(transaction, "i"); }},
        {"answered::RemoveOlder",
         [](Transaction& transaction) { answered::RemoveOlder(transaction, "a", 5); }},
        {"domains::Add",
         [](Transaction& transaction) {
             domains::Add(transaction, {0, "n", "n", "anna"});
         }},
        {"domains::Find", [](Transaction& transaction) { domains::Find(transaction, "n"); }},
        {"domains::Holding", [](Transaction& transaction) { domains::Holding(transaction, "a.b.c"); }},
        {"domains::Of", [](Transaction& transaction) { domains::Of(transaction, "anna"); }},
        {"domains::OfAnotherBelow",
         [](Transaction& transaction) { domains::OfAnotherBelow(transaction, "p", "anna"); }},
        {"domains::List", [](Transaction& transaction) { domains::List(transaction, 0, 10); }},
        {"requests::Put",
         [](Transaction& transaction) {
             requests::Put(transaction, "n", Dead(), {"r", "k"}, "t");
         }},
        {"requests::Find", [](Transaction& transaction) { requests::Find(transaction, "n", Living()); }},
        {"requests::Remove", [](Transaction& transaction) { requests::Remove(transaction, "n", Living()); }},
        {"requests::RemoveLeft", [](Transaction& transaction) { requests::RemoveLeft(transaction, "u"); }},
        {"reloads::Expect",
         [](Transaction& transaction) {
             reloads::Expect(transaction, {"anna", "n", "d", "t"});
         }},
        {"reloads::SetFailed",
         [](Transaction& transaction) {
             reloads::SetFailed(transaction, {"anna", "n", "d", "t"}, "t", "r");
         }},
        {"reloads::Finish", [](Transaction& transaction) { reloads::Finish(transaction, "anna", "m"); }},
        {"reloads::Find", [](Transaction& transaction) { reloads::Find(transaction, "anna", "n"); }},
        {"reloads::Due", [](Transaction& transaction) { reloads::Due(transaction, "t", "u", 10); }},
        {"tallies::CountRun", [](Transaction& transaction) { tallies::CountRun(transaction, "o", "r"); }},
        {"tallies::OfRuns", [](Transaction& transaction) { tallies::OfRuns(transaction); }},
        {"tallies::CountDuration",
         [](Transaction& transaction) {
             tallies::CountDuration(transaction, {1, 1, 1});
         }},
        {"tallies::CountRunOfDay",
         [](Transaction& transaction) { tallies::CountRunOfDay(transaction, "d", "o"); }},
        {"tallies::OfRunsSince", [](Transaction& transaction) { tallies::OfRunsSince(transaction, "d"); }},
        {"tallies::ForgetDaysBefore",
         [](Transaction& transaction) { tallies::ForgetDaysBefore(transaction, "d"); }},
        {"tallies::OfDurations", [](Transaction& transaction) { tallies::OfDurations(transaction); }},
        {"tallies::OfNotices", [](Transaction& transaction) { tallies::OfNotices(transaction); }},
        {"tallies::OfEnds", [](Transaction& transaction) { tallies::OfEnds(transaction, "d", 10); }},
        {"page_sessions::Add", [](Transaction& transaction) { page_sessions::Add(transaction, {}); }},
        {"page_sessions::Find",
         [](Transaction& transaction) {
             page_sessions::Find(transaction, page_sessions::Kind::kSession, 1);
         }},
        {"page_sessions::List",
         [](Transaction& transaction) {
             page_sessions::List(transaction, page_sessions::Kind::kSession, 0, 10);
         }},
        {"page_sessions::SetSeen",
         [](Transaction& transaction) { page_sessions::SetSeen(transaction, 1, "t"); }},
        {"page_sessions::Remove",
         [](Transaction& transaction) {
             page_sessions::Remove(transaction, page_sessions::Kind::kSession, 1);
         }},
        {"page_sessions::RemoveAll",
         [](Transaction& transaction) {
             page_sessions::RemoveAll(transaction, page_sessions::Kind::kSession);
         }},
        {"page_sessions::RemoveOlder",
         [](Transaction& transaction) {
             page_sessions::RemoveOlder(transaction, page_sessions::Kind::kLink, "t", "t");
         }},
        {"page_deeds::Add", [](Transaction& transaction) { page_deeds::Add(transaction, {}); }},
        {"page_deeds::Newest", [](Transaction& transaction) { page_deeds::Newest(transaction, 10, 10); }},
        {"page_deeds::RemoveOlder",
         [](Transaction& transaction) { page_deeds::RemoveOlder(transaction, "t", 10); }},
        {"problems::Raise",
         [](Transaction& transaction) {
             for (const std::string id : {"1", "2"})
                 problems::Raise(transaction, {id, "n", "l", "o", "t", {{"a", "b"}}});
         }},
        {"problems::Resolve",
         [](Transaction& transaction) { problems::Resolve(transaction, "n", "anna", "f"); }},
        {"problems::ResolveOfCertificate",
         [](Transaction& transaction) { problems::ResolveOfCertificate(transaction, "anna", "f"); }},
        {"problems::SetSeen", [](Transaction& transaction) { problems::SetSeen(transaction, 1); }},
        {"problems::SetSomeSeen", [](Transaction& transaction) { problems::SetSomeSeen(transaction, 10); }},
        {"problems::Clear", [](Transaction& transaction) { problems::Clear(transaction, 1); }},
        {"problems::ClearSome", [](Transaction& transaction) { problems::ClearSome(transaction, 10); }},
        {"problems::List",
         [](Transaction& transaction) {
             using problems::State;
             for (const State state :
                  {State::kOpen, State::kRaised, State::kSeen, State::kResolved, State::kNews, State::kAny}) {
                 problems::List(transaction, state, 0, 10);
             }
         }},
        {"problems::OpenOf", [](Transaction& transaction) { problems::OpenOf(transaction, "anna", 0, 10); }},
        {"problems::RemoveOlder",
         [](Transaction& transaction) { problems::RemoveOlder(transaction, "a", 10, 5); }},
        {"problems::Find", [](Transaction& transaction) { problems::Find(transaction, 1); }},
        {"deliveries::Queue",
         [](Transaction& transaction) { deliveries::Queue(transaction, SomeProblem(transaction)); }},
        {"deliveries::Unrouted", [](Transaction& transaction) { deliveries::Unrouted(transaction, "", 10); }},
        {"deliveries::Route",
         [](Transaction& transaction) {
             deliveries::Route(transaction, {1, SomeProblem(transaction), "o"}, {"r"}, "t");
         }},
        {"deliveries::Reroute", [](Transaction& transaction) { deliveries::Reroute(transaction, "r:"); }},
        {"deliveries::Due", [](Transaction& transaction) { deliveries::Due(transaction, "t", "u", 10); }},
        {"deliveries::Begin",
         [](Transaction& transaction) {
             for (int twice = 0; twice < 2; ++twice) deliveries::Begin(transaction, {.name = "r"}, "a", 10);
         }},
        {"deliveries::ProblemsOf",
         [](Transaction& transaction) { deliveries::ProblemsOf(transaction, "r", "a"); }},
        {"deliveries::SetHanded", [](Transaction& transaction) { deliveries::SetHanded(transaction, "r"); }},
        {"deliveries::Finish",
         [](Transaction& transaction) { deliveries::Finish(transaction, {.name = "r"}, "t"); }},
        {"deliveries::Postpone",
         [](Transaction& transaction) { deliveries::Postpone(transaction, {.name = "r"}, "t"); }},
        {"deliveries::Repeat",
         [](Transaction& transaction) { deliveries::Repeat(transaction, {.name = "r"}, "t"); }},
        {"deliveries::GiveUpInterrupted",
         [](Transaction& transaction) {
             deliveries::SetHanded(transaction, "r");
             deliveries::GiveUpInterrupted(transaction);
         }},
        {"publications::Put", [entry](Transaction& transaction) { publications::Put(transaction, entry); }},
        {"publications::Restore",
         [entry](Transaction& transaction) { publications::Restore(transaction, entry); }},
        {"publications::Drop",
         [entry](Transaction& transaction) { publications::Drop(transaction, entry.item, 2); }},
        {"publications::Of",
         [entry](Transaction& transaction) { publications::Of(transaction, entry.item); }},
        {"publications::OfJob", [](Transaction& transaction) { publications::OfJob(transaction, 2); }},
        {"publications::RecordsOf",
         [](Transaction& transaction) { publications::RecordsOf(transaction, "anna", "n", "v"); }},
        {"publications::SetUnwanted",
         [](Transaction& transaction) { publications::SetUnwanted(transaction, 1); }},
        {"publications::Keep",
         [](Transaction& transaction) { publications::Keep(transaction, 2, Living()); }},
        {"publications::Withdraw",
         [entry](Transaction& transaction) { publications::Withdraw(transaction, entry.item, 1, Living()); }},
        {"publications::SetMissing",
         [entry](Transaction& transaction) { publications::SetMissing(transaction, entry.item, true); }},
        {"publications::SetSeenByAll",
         [entry](Transaction& transaction) { publications::SetSeenByAll(transaction, entry.item, "t"); }},
        {"publications::SeenByAll",
         [](Transaction& transaction) { publications::SeenByAll(transaction, 2); }},
        {"usage::Note",
         [](Transaction& transaction) {
             usage::Note(transaction, 1, {usage::Kind::kOrder, "k", "t", true});
         }},
        {"usage::DropOpen", [](Transaction& transaction) { usage::DropOpen(transaction, 1); }},
        {"usage::CountOpen",
         [](Transaction& transaction) { usage::CountOpen(transaction, 1, usage::Kind::kOrder); }},
        {"usage::TimeOf",
         [](Transaction& transaction) { usage::TimeOf(transaction, usage::Kind::kOrder, "k", "s", 3); }},
        {"usage::CountSince",
         [](Transaction& transaction) { usage::CountSince(transaction, usage::Kind::kOrder, "k", "s", 3); }},
        {"usage::RemoveOlder", [](Transaction& transaction) { usage::RemoveOlder(transaction, "a", 5); }},
        {"findings::Ask", [](Transaction& transaction) { findings::Ask(transaction, 5, "t"); }},
        {"findings::TakeAsked",
         [](Transaction& transaction) {
             findings::Ask(transaction, 6, "t");
             findings::TakeAsked(transaction, 10);
         }},
        {"findings::Put",
         [](Transaction& transaction) {
             findings::Put(transaction, 5, {{"n", "p", "s", "d", "t"}});
         }},
        {"findings::Of", [](Transaction& transaction) { findings::Of(transaction, 5); }},
        {"findings::Forget", [](Transaction& transaction) { findings::Forget(transaction, 5); }},
        {"served::Set",
         [](Transaction& transaction) {
             served::Set(transaction, "anna", "f", {"s", "t", "d"});
         }},
        {"served::Find", [](Transaction& transaction) { served::Find(transaction, "anna", "f"); }},
        {"served::Expect",
         [](Transaction& transaction) {
             served::Expect(transaction, {"anna", "f", "c", "d", "t", "t"});
         }},
        {"served::IsExpected",
         [](Transaction& transaction) {
             served::IsExpected(transaction, {"anna", "f", "c", "d", "t", "t"});
         }},
        {"served::Postpone",
         [](Transaction& transaction) {
             served::Postpone(transaction, {"anna", "f", "c", "d", "t", "t"}, "u");
         }},
        {"served::Finish", [](Transaction& transaction) { served::Finish(transaction, "anna", "f"); }},
        {"served::Due", [](Transaction& transaction) { served::Due(transaction, "t", "u", 10); }},
        {"served::Forget", [](Transaction& transaction) { served::Forget(transaction, "anna", "f"); }},
        {"publications::SetFound",
         [entry](Transaction& transaction) { publications::SetFound(transaction, entry.item); }},
        {"publications::Missing",
         [](Transaction& transaction) { publications::Missing(transaction, 0, 10); }},
        {"publications::TakeUnwanted",
         [entry](Transaction& transaction) {
             publications::Restore(transaction, entry);
             publications::TakeUnwanted(transaction, std::nullopt);
             publications::TakeUnwanted(transaction, 1);
         }},
    };
}

Operations AllOperations() {
    Operations all = JobOperations();
    all.merge(OtherOperations());
    return all;
}

/// The operations that the store's headers declare.
std::set<std::string> DeclaredOperations() {
    static const std::regex form(R"((\w+)\(Transaction& transaction)");
    static const std::regex space(R"(namespace zelvek::(\w+))");
    std::set<std::string> names;
    for (const auto& file : fs::directory_iterator(STORE_SOURCES)) {
        if (file.path().extension() != ".h") continue;
        std::ifstream in(file.path());
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        std::smatch room;
        if (!std::regex_search(text, room, space)) continue;
        for (std::sregex_iterator name(text.begin(), text.end(), form), end; name != end; ++name) {
            names.insert(room[1].str() + "::" + (*name)[1].str());
        }
    }
    return names;
}

class QueryPlans : public ::testing::Test {
protected:
    QueryPlans() {
        std::string pattern = (fs::temp_directory_path() / "zelvek.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        store_ = std::make_unique<Store>(File());
        Transaction transaction(*store_);
        for (int number = 0; number < kJobs; ++number) {
            Job job = FilledJob(std::to_string(number));
            job.user_name = number % 10 == 0 ? "anna" : job.user_name;
            job.id = jobs::Add(transaction, job);
            jobs::Save(transaction, job);
        }
        transaction.Commit();
    }

    ~QueryPlans() override {
        store_.reset();
        fs::remove_all(folder_);
    }

    fs::path File() const { return folder_ / "zelvek.db"; }

    void Do(const Operation& operation) {
        Transaction transaction(*store_);
        operation(transaction);
        transaction.Commit();
    }

    /// What is wrong with the plans of all statements that the store has prepared.
    std::vector<std::string> Findings() {
        std::vector<std::string> statements;
        Do([&](Transaction& transaction) { statements = transaction.Prepared(); });
        SQLite::Database database(File().string());
        std::vector<std::string> findings;
        for (const std::string& statement : statements) {
            const auto found = FindingsOf(PlanOf(database, statement), statement);
            findings.insert(findings.end(), found.begin(), found.end());
        }
        return findings;
    }

    fs::path folder_;
    std::unique_ptr<Store> store_;
};

// Behaviours of: Store

// Behaviour: No operation of the store reads a growing table from one end to the other or sorts it: each
//   statement finds what it looks for by an index
TEST_F(QueryPlans, EveryStatementUsesAnIndex) {
    for (const auto& [name, operation] : AllOperations()) Do(operation);
    EXPECT_THAT(Findings(), IsEmpty());
    SQLite::Database database(File().string());
    EXPECT_FALSE(database.tableExists("sqlite_stat1")) << "the plans must not depend on statistics";
    EXPECT_GE(database.execAndGet("SELECT count(*) FROM job").getInt(), kJobs - 1);
}

// Behaviour: No operation of the store ...
TEST_F(QueryPlans, EveryOperationIsCarriedOut) {
    std::set<std::string> names;
    for (const auto& [name, operation] : AllOperations()) names.insert(name);
    EXPECT_EQ(DeclaredOperations(), names);
}

// Behaviour: No operation of the store ...
TEST_F(QueryPlans, WhatReadsOrSortsMuchIsFound) {
    const std::map<std::string, std::string> bad{
        {"SELECT id FROM job WHERE domain = :name", "SCAN job"},
        {"SELECT id FROM job WHERE user_name = :user ORDER BY domain", "TEMP B-TREE"},
        {"SELECT id FROM job WHERE job.id > :after AND res_name = :name ORDER BY id LIMIT :most",
         "SEARCH job"},
        {"SELECT count(*) FROM account", "SCAN account"},
        {"SELECT job.id FROM job JOIN domain ON domain.name = job.domain WHERE job.id = :id", "SCAN domain"},
        {"DELETE FROM job_event WHERE detail = :detail", "SCAN job_event"},
        {"SELECT id FROM job_event ORDER BY time", "SCAN job_event"},
        {"SELECT id FROM job_event ORDER BY id", "SCAN job_event"}};
    for (const auto& [statement, finding] : bad) {
        Do([&, &text = statement](Transaction& transaction) { transaction.Prepare(text); });
        EXPECT_THAT(Findings(), Contains(AllOf(HasSubstr(finding), HasSubstr(statement))));
    }
    EXPECT_GE(Findings().size(), bad.size());
}

// Behaviour: Every index of the database is one that a statement needs
TEST_F(QueryPlans, EveryIndexIsNeeded) {
    for (const auto& [name, operation] : AllOperations()) Do(operation);
    SQLite::Database database(File().string(), SQLite::OPEN_READWRITE);
    std::map<std::string, std::string> indexes;
    SQLite::Statement select(database,
                             "SELECT name, sql FROM sqlite_master WHERE type = 'index' AND sql <> ''");
    while (select.executeStep()) indexes[select.getColumn(0).getString()] = select.getColumn(1).getString();
    select.reset();
    EXPECT_GE(indexes.size(), 10u);
    for (const auto& [name, text] : indexes) {
        database.exec("DROP INDEX " + name);
        EXPECT_THAT(Findings(), Not(IsEmpty())) << name;
        database.exec(text);
    }
    EXPECT_THAT(Findings(), IsEmpty());
}

// Behaviour: Rows that refer to others are found by an index, so that removing what they refer to reads no
//   whole table
TEST_F(QueryPlans, ReferencesHaveAnIndex) {
    SQLite::Database database(File().string());
    SQLite::Statement references(
        database,
        "SELECT t.name, f.\"from\", EXISTS (SELECT 1 FROM pragma_index_list(t.name) i, "
        "pragma_index_info(i.name) c"
        " WHERE c.seqno = 0 AND c.name = f.\"from\" AND i.partial = 0)"
        " OR (SELECT group_concat(name) FROM pragma_table_info(t.name) WHERE pk > 0) = f.\"from\""
        " FROM sqlite_master t, pragma_foreign_key_list(t.name) f WHERE t.type = 'table'");
    int count = 0;
    while (references.executeStep()) {
        ++count;
        EXPECT_TRUE(references.getColumn(2).getInt())
            << references.getColumn(0).getString() << "." << references.getColumn(1).getString();
    }
    EXPECT_EQ(count, 7);
}

}  // namespace

}  // namespace zelvek::testing
