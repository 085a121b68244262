#include "store_operations.h"

#include <utility>

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
        {"problems::ListOfUser",
         [](Transaction& transaction) {
             using problems::State;
             for (const State state :
                  {State::kOpen, State::kRaised, State::kSeen, State::kResolved, State::kNews, State::kAny}) {
                 problems::ListOfUser(transaction, "anna", state, 0, 10);
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

}  // namespace

Operations AllOperations() {
    Operations all = JobOperations();
    all.merge(OtherOperations());
    return all;
}

}  // namespace zelvek::testing
