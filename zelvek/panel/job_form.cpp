#include "zelvek/panel/job_form.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/request_keys.h"
#include "zelvek/certificates/request.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

const std::string kCsrPrefix = "csr_";

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
    std::map<std::string, std::string> entries;
    for (const auto& [key, value] : query.parameters.All()) {
        if (!key.starts_with(kCsrPrefix)) continue;
        const std::string name = key.substr(kCsrPrefix.size());
        CheckRequestKey(name);
        names::CheckText(name, value);
        entries[name] = value;
    }
    return vek_client::Bind(vek_client::Bind("certname_ascii=?", {str::puny::Encode(certname)}), entries);
}

// More than any authority takes; each further one would be looked at once more for nothing.
constexpr std::size_t kMostNames = 1000;

/// The full list of names, the main one first, each once.
std::string Aliases(const Query& query, const std::string& main, bool wildcards) {
    const auto given = str::Split(main + " " + query.parameters.Get("aliases"), " ");
    if (given.size() > kMostNames)
        throw Error(Code::kValue, "aliases", std::to_string(given.size()),
                    "a job has at most " + std::to_string(kMostNames) + " names");
    std::set<std::string> seen;
    std::string aliases;
    for (const std::string& name : given) {
        names::CheckDomain(name, wildcards);
        if (seen.insert(names::Canonical(name)).second) str::inpl::Append(aliases, name, " ");
    }
    return aliases;
}

/// `holder` is the domain that holds the name, where there is one.
Error NameOfAnother(const std::string& user, const std::string& name,
                    const std::optional<domains::Domain>& holder) {
    const std::string where =
        holder ? "in another user's domain, " + holder->name : "in no domain of user " + user;
    return Error(Code::kMissed, "domain", name,
                 "\"" + name + "\" is " + where + "; \"zelvek domain add\" gives user " + user +
                     " a domain of their own");
}

}  // namespace

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
    job.authority = parameters.Get("authority");
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

std::map<std::string, std::string> FormOf(const Job& job) {
    std::string further_names = job.aliases;
    str::GetWord(further_names, ' ');
    std::map<std::string, std::string> form{
        {"domain", job.domain},
        {"aliases", further_names},
        {"check_type", job.check_type},
        {"certname", job.certname},
        {"user_name", job.user_name},
        {"authority", job.authority},
        {"res_name", job.res_name},
        {"skip_account_check", job.skip_account_check ? "on" : "off"},
        {"max_account_check_attempts", str::Str(job.max_account_check_attempts)}};
    const Parameters request(job.csr_internal_request);
    for (const auto& [key, value] : request.All()) {
        if (key != "certname_ascii") form[kCsrPrefix + key] = value;
    }
    return form;
}

void CheckOwner(Transaction& transaction, const std::string& user, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const std::string canonical = names::Canonical(name);
        const std::string base = names::WithoutWildcard(canonical);
        auto holder = domains::Holding(transaction, base);
        // A wildcard stands for the domains one label below, too.
        if (base != canonical) {
            if (auto below = domains::OfAnotherBelow(transaction, base, user)) holder = std::move(below);
        }
        if (!holder || holder->user_name != user) throw NameOfAnother(user, name, holder);
    }
}

bool TakesForeignNames(const Query& query) {
    return query.parameters.Has("foreign_names") && Flag(query, "foreign_names");
}

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

}  // namespace zelvek
