#include "zelvek/panel/authorities.h"

#include <algorithm>
#include <map>
#include <utility>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/store/job_authorities.h"

namespace zelvek {

namespace {

void List(Services& services, const Query&, XmlAnswer& answer) {
    auto there = authorities::All(services.plugins);
    Transaction transaction(services.store);
    for (const KnownAuthority& known : KnownAuthorities(std::move(there), transaction)) {
        answer.Elem()
            .Value("name", known.authority.name)
            .Value("directory", known.authority.directory)
            .Value("style", known.authority.style)
            .Flag("default", known.is_default)
            .Value("jobs", known.jobs);
    }
}

void SetDefault(Services& services, const Query& query, XmlAnswer&) {
    const std::string& name = query.parameters.Get("name");
    CheckAuthority(services, name);
    Transaction transaction(services.store);
    job_authorities::SetDefault(transaction, name);
    transaction.Commit();
}

}  // namespace

std::vector<KnownAuthority> KnownAuthorities(std::vector<authorities::Authority> there,
                                             Transaction& transaction) {
    const std::string of_new_jobs = job_authorities::Default(transaction);
    std::map<std::string, long long> counts = job_authorities::Counts(transaction);
    counts.try_emplace(of_new_jobs, 0);
    std::vector<KnownAuthority> known;
    for (auto& authority : there) {
        const auto count = counts.extract(authority.name);
        known.push_back({std::move(authority), count.empty() ? 0 : count.mapped()});
    }
    for (const auto& [name, jobs] : counts) {
        if (jobs > 0 || name == of_new_jobs) known.push_back({{name, "", ""}, jobs});
    }
    for (KnownAuthority& one : known) {
        one.is_default = one.authority.name == of_new_jobs;
        one.account = accounts::Default(transaction, one.authority.name);
    }
    return known;
}

void CheckAuthority(const Services& services, const std::string& name) {
    if (authorities::IsName(name) && authorities::Find(services.plugins, name)) return;
    throw Error(Code::kMissed, "authority", name,
                "there is no authority \"" + Printable(name) +
                    "\": \"zelvek authority list\" shows those whose plug-ins are there");
}

Functions functions::Authorities() {
    return {{"zelvek.authority.list", Right::kRead, &List},
            {"zelvek.authority.default", Right::kChange, &SetDefault}};
}

}  // namespace zelvek
