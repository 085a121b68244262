// Users' domains: added, removed, listed, and as runs ask for them.
#include "zelvek/store/domains.h"

#include <algorithm>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/store/job_names.h"

namespace zelvek {

namespace {

/// What a run asks: the domains of its job's owner.
void OfUser(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& user = query.parameters.Get("su");
    names::CheckUser(user);
    Transaction transaction(services.store);
    for (const auto& domain : domains::Of(transaction, user)) {
        answer.Elem().Value("id", domain.id).Value("name", domain.name);
    }
}

void AddDomain(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& name = query.parameters.Get("name");
    const std::string& user = query.parameters.Get("user_name");
    names::CheckDomain(name, false);
    names::CheckUser(user);
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    domains::Add(transaction, {0, name, names::Canonical(name), user});
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

constexpr int kNamesAtOnce = 100;
constexpr std::size_t kJobsNamed = 5;

/// Some of the jobs that have names in this domain, and in none that is longer.
std::vector<int> JobsIn(Transaction& transaction, const domains::Domain& domain) {
    std::vector<int> jobs;
    job_names::Named last;
    for (bool more = true; more && jobs.size() < kJobsNamed;) {
        const auto some = job_names::Below(transaction, domain.ascii, domain.user_name, last, kNamesAtOnce);
        for (const job_names::Named& named : some) {
            const auto holder = domains::Holding(transaction, names::WithoutWildcard(named.name));
            const bool known = std::find(jobs.begin(), jobs.end(), named.job) != jobs.end();
            if (holder && holder->id == domain.id && !known && jobs.size() < kJobsNamed)
                jobs.push_back(named.job);
        }
        more = some.size() == static_cast<std::size_t>(kNamesAtOnce);
        if (!some.empty()) last = some.back();
    }
    return jobs;
}

/// Without the domain such a job could neither publish records nor be renewed for its user.
void CheckIsNotNeeded(Transaction& transaction, const domains::Domain& domain) {
    const std::vector<int> jobs = JobsIn(transaction, domain);
    if (jobs.empty()) return;
    std::string numbers;
    for (const int job : jobs) str::inpl::Append(numbers, std::to_string(job), ", ");
    const std::string which = jobs.size() == 1 ? "job " + numbers + " has" : "jobs " + numbers + " have";
    throw Error(Code::kBusy, "domain", domain.name,
                which + " names in the domain \"" + domain.name +
                    "\": edit or remove what needs it before (\"zelvek job edit\", \"zelvek job remove\")");
}

void RemoveDomain(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& name = query.parameters.Get("name");
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    const auto domain = domains::Find(transaction, names::Canonical(name, "name"));
    if (!domain) throw Error(Code::kMissed, "domain", name, "there is no domain \"" + name + "\"");
    CheckIsNotNeeded(transaction, *domain);
    domains::Remove(transaction, domain->id);
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

void ListDomains(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& user = query.parameters.Get("user_name");
    const Page page(query);
    const auto records = services.publisher.records();
    Transaction transaction(services.store);
    const auto found =
        user.empty() ? domains::List(transaction, page.after, page.limit) : domains::Of(transaction, user);
    int left = page.limit;
    for (const auto& domain : found) {
        if (domain.id <= page.after) continue;
        if (left-- == 0) break;
        answer.Elem()
            .Value("id", domain.id)
            .Value("name", domain.name)
            .Value("user", domain.user_name)
            .Flag("zone", records != nullptr && records->Serves(domain.ascii));
    }
}

}  // namespace

Functions functions::Domains() {
    return {{"domain", Right::kOwn, &OfUser},
            {"zelvek.domain.add", Right::kChange, &AddDomain},
            {"zelvek.domain.remove", Right::kChange, &RemoveDomain},
            {"zelvek.domain.list", Right::kRead, &ListDomains}};
}

}  // namespace zelvek
