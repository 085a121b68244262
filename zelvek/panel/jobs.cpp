// Jobs as people see them: added, listed, shown, claimed for a run, removed.
#include <algorithm>
#include <array>
#include <map>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

/// The further parameters of the query that makes the certificate's request, in query form. Of a key that
/// stands twice the first counts, so only what a request takes is let in here.
std::string CsrRequest(const Query& query, const std::string& certname) {
    constexpr std::array kKeys{"key_type", "key_size",     "key_curve", "country", "state",
                               "locality", "organization", "unit",      "email"};
    const std::string prefix = "csr_";
    std::map<std::string, std::string> entries;
    for (const auto& [key, value] : query.parameters.All()) {
        if (!key.starts_with(prefix)) continue;
        const std::string name = key.substr(prefix.size());
        if (std::find(kKeys.begin(), kKeys.end(), name) == kKeys.end()) {
            throw Error(Code::kValue, "csr", name, "a certificate's request takes no \"" + name + "\"");
        }
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

jobs::Job NewJob(const Query& query) {
    const Parameters& parameters = query.parameters;
    jobs::Job job;
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
    job.user_name = parameters.Get("user_name");
    names::CheckUser(job.user_name);
    job.res_name = parameters.Get("res_name");
    names::CheckText("res_name", job.res_name);
    job.csr_internal_request = CsrRequest(query, job.certname);
    job.skip_account_check = parameters.Has("skip_account_check") && Flag(query, "skip_account_check");
    job.max_account_check_attempts =
        parameters.Has("max_account_check_attempts") ? Number(query, "max_account_check_attempts") : 3;
    job.time_started = vek_date::DateTime().AsDateTime();
    return job;
}

XmlAnswer::Element WriteJob(const jobs::Job& job, XmlAnswer::Element element) {
    return element.Value("id", job.id)
        .Value("certname", job.certname)
        .Value("domain", job.domain)
        .Value("user_name", job.user_name)
        .Value("aliases", job.aliases)
        .Value("check_type", job.check_type)
        .Value("attempt_count", job.attempt_count)
        .Flag("verified", job.verified)
        .Flag("failed", job.failed)
        .Value("next_attempt", job.next_attempt)
        .Value("time_started", job.time_started)
        .Value("kid", job.kid)
        .Value("finalize_check", job.finalize_check)
        .Value("challenges", job.challenges)
        .Flag("processing", job.processing);
}

/// A transaction that sees no run of a dead process.
class LivingRuns : public Transaction {
public:
    explicit LivingRuns(Services& services) : Transaction(services.store) {
        jobs::EndDeadRuns(database(), vek_date::DateTime().AsDateTime());
    }
};

jobs::Job FindIdle(SQLite::Database& database, int id) {
    jobs::Job job = jobs::Find(database, id);
    if (job.processing) {
        throw Error(Code::kBusy, "ambrin.data", std::to_string(id),
                    "job " + std::to_string(id) + " is running already");
    }
    return job;
}

}  // namespace

void functions::AddJob(Services& services, const Query& query, XmlAnswer& answer) {
    const jobs::Job job = NewJob(query);
    Transaction transaction(services.store);
    answer.Doc().Value("id", jobs::Add(transaction.database(), job));
    transaction.Commit();
}

void functions::ListJobs(Services& services, const Query&, XmlAnswer& answer) {
    LivingRuns transaction(services);
    for (const auto& job : jobs::All(transaction.database())) WriteJob(job, answer.Elem());
    transaction.Commit();
}

void functions::ShowJob(Services& services, const Query& query, XmlAnswer& answer) {
    LivingRuns transaction(services);
    const int id = Number(query, "elid");
    WriteJob(jobs::Find(transaction.database(), id), answer.Doc());
    for (const auto& event : jobs::Events(transaction.database(), id)) {
        answer.Doc()
            .Child("event")
            .Value("time", event.time)
            .Value("state", event.state)
            .Value("event", event.event)
            .Value("detail", event.detail);
    }
    transaction.Commit();
}

void functions::ClaimJob(Services& services, const Query& query, XmlAnswer&) {
    LivingRuns transaction(services);
    jobs::Job job = FindIdle(transaction.database(), Number(query, "elid"));
    // Whoever runs a stopped job gives it another try: as long as it counts as failed, nothing stays
    // published for it.
    job.failed = false;
    jobs::Save(transaction.database(), job);
    jobs::Claim(transaction.database(), job.id, query.caller);
    transaction.Commit();
}

void functions::RemoveJob(Services& services, const Query& query, XmlAnswer&) {
    const int id = Number(query, "elid");
    {
        LivingRuns transaction(services);
        FindIdle(transaction.database(), id);
        publications::SetUnwanted(transaction.database(), id);
        jobs::Remove(transaction.database(), id);
        transaction.Commit();
    }
    services.publications.RemoveUnwanted(id);
}

}  // namespace zelvek
