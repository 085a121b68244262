// Jobs as people see them: added, listed, shown, claimed for a run, removed.
#include <algorithm>
#include <map>
#include <optional>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/request_keys.h"
#include "zelvek/certificates/request.h"
#include "zelvek/jobs/reason.h"
#include "zelvek/jobs/registration.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_fields.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/reloads.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"
#include "zelvek/store/served.h"

namespace zelvek {

namespace {

constexpr int kStartedAtOnce = 500;

void CheckRequestKey(const std::string& key) {
    std::string keys;
    for (const RequestKey& known : kRequestKeys) {
        if (key == known.key) return;
        str::inpl::Append(keys, known.key, ", ");
    }
    throw Error(Code::kValue, "csr", key, "a certificate's request takes " + keys + ", no \"" + key + "\"");
}

/// The further parameters of the query that makes the certificate's request, in query form. Of a key that
/// stands twice the first counts, so only what a request takes is let in here.
std::string CsrRequest(const Query& query, const std::string& certname) {
    const std::string prefix = "csr_";
    std::map<std::string, std::string> entries;
    for (const auto& [key, value] : query.parameters.All()) {
        if (!key.starts_with(prefix)) continue;
        const std::string name = key.substr(prefix.size());
        CheckRequestKey(name);
        names::CheckText(name, value);
        entries[name] = value;
    }
    return vek_client::Bind(vek_client::Bind("certname_ascii=?", {str::puny::Encode(certname)}), entries);
}

/// The full list of names, the main one first, each once.
std::string Aliases(const Query& query, const std::string& main, bool wildcards) {
    std::vector<std::string> seen;
    std::string aliases;
    for (const std::string& name : str::Split(main + " " + query.parameters.Get("aliases"), " ")) {
        names::CheckDomain(name, wildcards);
        const std::string canonical = names::Canonical(name);
        if (std::find(seen.begin(), seen.end(), canonical) != seen.end()) continue;
        seen.push_back(canonical);
        str::inpl::Append(aliases, name, " ");
    }
    return aliases;
}

Job NewJob(const Query& query) {
    const Parameters& parameters = query.parameters;
    Job job;
    job.check_type = parameters.Has("check_type") ? parameters.Get("check_type") : "http";
    if (job.check_type != "http" && job.check_type != "dns") {
        throw Error(Code::kValue, "check_type", job.check_type,
                    "names are checked by \"http\" or by \"dns\"");
    }
    job.domain = parameters.Get("domain");
    // A name with a wildcard is proved in the DNS alone (RFC 8555 section 7.1.3 leaves it to the authority;
    // they all do).
    names::CheckDomain(job.domain, job.check_type == "dns");
    job.aliases = Aliases(query, job.domain, job.check_type == "dns");
    job.certname = parameters.Get("certname").empty() ? job.domain : parameters.Get("certname");
    names::CheckCertname(job.certname);
    job.folder = names::ComparedFolder(job.certname);
    job.user_name = parameters.Get("user_name");
    names::CheckUser(job.user_name);
    job.res_name = parameters.Get("res_name");
    names::CheckText("res_name", job.res_name);
    job.csr_internal_request = CsrRequest(query, job.certname);
    // A request that cannot be made would fail long after this, when the authority has proved every name.
    CheckCsr(str::Split(job.aliases, " "), Parameters(job.csr_internal_request));
    job.skip_account_check = parameters.Has("skip_account_check") && Flag(query, "skip_account_check");
    job.max_account_check_attempts =
        parameters.Has("max_account_check_attempts") ? Number(query, "max_account_check_attempts") : 3;
    job.time_started = vek_date::DateTime().AsDateTime();
    job.due = job.time_started;
    return job;
}

/// A transaction that sees no run of a dead process.
class LivingRuns : public Transaction {
public:
    explicit LivingRuns(Services& services) : Transaction(services.store) {
        FreeJobsOfTheDead(*this, vek_date::DateTime().AsDateTime(), services.retry);
    }
};

Job FindIdle(Transaction& transaction, int id) {
    Job job = jobs::FindShown(transaction, id);
    if (job.processing) {
        throw Error(Code::kBusy, "ambrin.data", std::to_string(id),
                    "job " + std::to_string(id) + " is running already");
    }
    return job;
}

jobs::State StateNamed(const std::string& name) {
    static const std::map<std::string, jobs::State> states{{"", jobs::State::kAny},
                                                           {"verified", jobs::State::kVerified},
                                                           {"failed", jobs::State::kFailed},
                                                           {"running", jobs::State::kRunning},
                                                           {"waiting", jobs::State::kWaiting}};
    const auto state = states.find(name);
    if (state != states.end()) return state->second;
    throw Error(Code::kValue, "state", name,
                "a state is \"verified\", \"failed\", \"running\" or \"waiting\", not \"" + name + "\"");
}

/// `holder` is the domain that holds the name, where there is one.
Error NameOfAnother(const Job& job, const std::string& name, const std::optional<domains::Domain>& holder) {
    const std::string where =
        holder ? "in another user's domain, " + holder->name : "in no domain of user " + job.user_name;
    return Error(Code::kMissed, "domain", name,
                 "\"" + name + "\" is " + where + "; \"zelvek domain add\" gives user " + job.user_name +
                     " a domain of their own");
}

/// A user gets certificates for names in their own domains alone: the authority proves only that this machine
/// serves a name, which it does for every user.
void CheckOwner(Transaction& transaction, const Job& job) {
    for (const std::string& name : str::Split(job.aliases, " ")) {
        const std::string canonical = names::Canonical(name);
        const std::string base = names::WithoutWildcard(canonical);
        auto holder = domains::Holding(transaction, base);
        // A wildcard stands for the domains one label below, too.
        if (base != canonical) {
            if (auto below = domains::OfAnotherBelow(transaction, base, job.user_name))
                holder = std::move(below);
        }
        if (!holder || holder->user_name != job.user_name) throw NameOfAnother(job, name, holder);
    }
}

/// Of two jobs with one certificate the second would replace what the first has installed, and each would
/// take the other's work for its own.
void CheckCertificateIsNew(Transaction& transaction, const Job& job) {
    const auto other = jobs::OfFolder(transaction, job.user_name, job.folder);
    if (!other) return;
    const std::string number = std::to_string(*other);
    throw Error(Code::kExists, "certname", job.certname,
                "job " + number + " of user " + job.user_name + " has the certificate \"" +
                    jobs::FindShown(transaction, *other).certname +
                    "\" already: remove that job (\"zelvek job remove " + number +
                    "\"), or name this one's certificate otherwise (\"--certname\")");
}

void AddJob(Services& services, const Query& query, XmlAnswer& answer) {
    const Job job = NewJob(query);
    // The administrator may know better, of a name whose DNS lies elsewhere, say.
    const bool foreign_names = query.parameters.Has("foreign_names") && Flag(query, "foreign_names");
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    if (!foreign_names) CheckOwner(transaction, job);
    CheckCertificateIsNew(transaction, job);
    answer.Doc().Value("id", jobs::Add(transaction, job));
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

void ListJobs(Services& services, const Query& query, XmlAnswer& answer) {
    const Page page(query);
    const jobs::State state = StateNamed(query.parameters.Get("state"));
    LivingRuns transaction(services);
    for (const Job& job :
         jobs::List(transaction, {page.after, page.limit, query.parameters.Get("user_name"), state})) {
        XmlAnswer::Element element = answer.Elem();
        WriteFields(job, JobField::kInLists, element.Value("id", job.id));
    }
    transaction.Commit();
}

/// Empty for a name that cannot be installed: older versions took longer ones.
std::string FolderOf(const Job& job) {
    try {
        return names::ComparedFolder(job.certname);
    } catch (const Error&) {
        return "";
    }
}

/// Of the installed certificate, where the web server has not taken it over.
std::optional<reloads::Reload> FailedReload(Transaction& transaction, const Job& job) {
    auto reload = reloads::Find(transaction, job.user_name, str::puny::Encode(job.certname));
    return reload && reload->failures > 0 ? std::move(reload) : std::nullopt;
}

void AddReload(Transaction& transaction, const Job& job, XmlAnswer& answer) {
    const auto reload = FailedReload(transaction, job);
    if (!reload) return;
    answer.Doc()
        .Child("reload")
        .Value("since", reload->since)
        .Value("failures", reload->failures)
        .Value("next", reload->next)
        .Value("reason", names::MakeText(reload->reason));
}

/// What the job does next, or what is wrong with it, in words.
void AddReason(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
               XmlAnswer& answer) {
    JobFacts facts{job,
                   events,
                   findings::Of(transaction, job.id),
                   FailedReload(transaction, job),
                   served::Find(transaction, job.user_name, FolderOf(job)),
                   vek_date::DateTime().AsDateTime()};
    const Reason reason = ReasonOf(facts);
    answer.Doc().Value("sentence", names::MakeText(reason.sentence));
    for (const std::string& detail : reason.details)
        answer.Doc().Child("finding").Value("text", names::MakeText(detail));
}

void ShowJob(Services& services, const Query& query, XmlAnswer& answer) {
    LivingRuns transaction(services);
    const int id = Number(query, "elid");
    const Job job = jobs::FindShown(transaction, id);
    const auto events = history::Of(transaction, id);
    WriteFields(job, JobField::kInLists, answer.Doc().Value("id", id));
    AddReason(transaction, job, events, answer);
    for (const auto& event : events) {
        answer.Doc()
            .Child("event")
            .Value("time", event.time)
            .Value("state", event.state)
            .Value("event", event.event)
            .Value("detail", event.detail);
    }
    AddReload(transaction, job, answer);
    transaction.Commit();
}

void ClaimJob(Services& services, const Query& query, XmlAnswer& answer) {
    LivingRuns transaction(services);
    if (AnsweredBefore(transaction, query, answer)) return;
    const Job job = FindIdle(transaction, Number(query, "elid"));
    if (const auto other = RegistrationUnderWay(transaction, job)) {
        throw Error(Code::kBusy, "ambrin.data", std::to_string(job.id),
                    "job " + std::to_string(*other) +
                        " is registering the panel's account, which this job can use: try again when it has");
    }
    // Whoever runs a stopped job gives it another try: as long as it counts as failed, nothing stays
    // published for it.
    restarts::Revive(transaction, job.id);
    runs::Claim(transaction, job.id, query.caller);
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

/// One job, or each of a user's or of all, or those that end within some days.
void RenewJobs(Services& services, const Query& query, XmlAnswer& answer) {
    const vek_date::DateTime now;
    if (query.parameters.Has("elid")) {
        LivingRuns transaction(services);
        restarts::StartAnew(transaction, FindIdle(transaction, Number(query, "elid")).id, now.AsDateTime(),
                            true);
        transaction.Commit();
        answer.Doc().Value("count", 1);
        return;
    }
    restarts::Renewable which{0, kStartedAtOnce, query.parameters.Get("user_name"), ""};
    if (query.parameters.Has("days")) {
        which.before = vek_date::DateTime(now).AddDays(Number(query, "days")).AsDateTime();
    }
    long long count = 0;
    for (std::size_t found = kStartedAtOnce; found == kStartedAtOnce;) {
        // In steps, so that nobody waits long for the store.
        Transaction transaction(services.store);
        const std::vector<int> some = restarts::ToRenew(transaction, which);
        for (const int job : some) restarts::StartAnew(transaction, job, now.AsDateTime(), true);
        transaction.Commit();
        found = some.size();
        count += static_cast<long long>(found);
        if (!some.empty()) which.after = some.back();
    }
    answer.Doc().Value("count", count);
}

/// One job, or all of a user's or of everybody's that have no certificate.
void RetryJobs(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string now = vek_date::DateTime().AsDateTime();
    if (query.parameters.Has("elid")) {
        LivingRuns transaction(services);
        restarts::Retry(transaction, FindIdle(transaction, Number(query, "elid")).id, now);
        transaction.Commit();
        answer.Doc().Value("count", 1);
        return;
    }
    int after = 0;
    long long count = 0;
    for (std::size_t found = kStartedAtOnce; found == kStartedAtOnce;) {
        Transaction transaction(services.store);
        const std::vector<int> some =
            restarts::ToRetry(transaction, after, kStartedAtOnce, query.parameters.Get("user_name"));
        for (const int job : some) restarts::Retry(transaction, job, now);
        transaction.Commit();
        found = some.size();
        count += static_cast<long long>(found);
        if (!some.empty()) after = some.back();
    }
    answer.Doc().Value("count", count);
}

void RemoveJob(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    {
        LivingRuns transaction(services);
        if (AnsweredBefore(transaction, query, answer)) return;
        const Job job = FindIdle(transaction, id);
        ForgetSite(transaction, job.user_name, FolderOf(job));
        publications::SetUnwanted(transaction, id);
        jobs::Remove(transaction, id);
        RememberAnswer(transaction, query, answer);
        transaction.Commit();
    }
    services.publisher.RemoveUnwanted(id);
}

}  // namespace

Functions functions::Jobs() {
    return {{"zelvek.job.add", &AddJob},      {"zelvek.job.list", &ListJobs},
            {"zelvek.job.show", &ShowJob},    {"zelvek.job.claim", &ClaimJob},
            {"zelvek.job.renew", &RenewJobs}, {"zelvek.job.retry", &RetryJobs},
            {"zelvek.job.remove", &RemoveJob}};
}

}  // namespace zelvek
