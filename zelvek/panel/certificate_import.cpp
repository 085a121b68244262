// Certificates that somebody else has had issued become jobs, as they are.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/placeholder.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/panel/authorities.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_form.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/history.h"
#include "zelvek/store/job_authorities.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"

namespace zelvek {

namespace {

using Names = std::vector<std::string>;

/// A certificate that is to be taken over: checked, but for whose its names are.
struct Import {
    Job job;
    install::Request request;
    Lifetime lifetime;
};

bool IsWildcard(const std::string& name) { return name.starts_with("*."); }

void CheckHolds(const Lifetime& lifetime) {
    const vek_date::DateTime now;
    if (lifetime.until <= now) {
        throw Error(Code::kValue, "certificate", lifetime.until.AsDateTime(),
                    "the certificate has ended at " + lifetime.until.AsDateTime() +
                        " UTC: have a new one issued (\"zelvek job add\")");
    }
    if (lifetime.from > now) {
        throw Error(Code::kValue, "certificate", lifetime.from.AsDateTime(),
                    "the certificate does not hold before " + lifetime.from.AsDateTime() + " UTC");
    }
}

/// The main name first: the one that is wished for where the certificate has it, else the certificate's first
/// one that is no wildcard.
Names InOrder(Names names, const std::string& wished) {
    auto main = std::find(names.begin(), names.end(), wished);
    if (main == names.end())
        main = std::find_if(names.begin(), names.end(), [](const auto& name) { return !IsWildcard(name); });
    if (main != names.end()) std::rotate(names.begin(), main, main + 1);
    return names;
}

/// Renewals ask for a key of the same kind. A kind that no request takes becomes the usual one.
void AddKeyKind(std::map<std::string, std::string>& form, const Description& description) {
    const std::map<int, std::string> curves{{256, "P-256"}, {384, "P-384"}, {521, "P-521"}};
    const int size = description.key_size;
    if (description.key_kind == "ec" && curves.contains(size)) {
        form["csr_key_type"] = "ec";
        form["csr_key_curve"] = curves.at(size);
    }
    if (description.key_kind == "rsa" && size > 2048 && size <= 8192) {
        form["csr_key_type"] = "rsa";
        form["csr_key_size"] = std::to_string(size);
    }
}

/// How the names are proved at renewals: as asked for, else by http-01, but for wildcards.
std::string CheckType(const Services& services, const Query& query, const Names& names) {
    const std::string& asked = query.parameters.Get("check_type");
    const auto wildcard = std::find_if(names.begin(), names.end(), &IsWildcard);
    std::string type = !asked.empty() ? asked : wildcard != names.end() ? "dns" : "http";
    if (type == "http" && wildcard != names.end()) {
        throw Error(Code::kValue, "check_type", type,
                    "\"" + *wildcard + "\" is a wildcard, which only records in the DNS prove: \"dns\"");
    }
    if (type == "dns" && services.publisher.records() == nullptr) {
        throw Error(Code::kValue, "check_type", type,
                    "the names can only be proved by records in the DNS, and the service has no name server "
                    "for them: see dns-server in zelvek.conf(5)");
    }
    return type;
}

Job JobOf(const Services& services, const Query& query, const Names& names, const std::string& leaf) {
    std::string further;
    for (const std::string& name : Names(names.begin() + 1, names.end()))
        str::inpl::Append(further, name, " ");
    std::map<std::string, std::string> form{{"domain", names.front()},
                                            {"aliases", further},
                                            {"certname", query.parameters.Get("certname")},
                                            {"user_name", query.parameters.Get("user_name")},
                                            {"authority", query.parameters.Get("authority")},
                                            {"check_type", CheckType(services, query, names)}};
    AddKeyKind(form, Describe(leaf));
    return NewJob({Parameters(vek_client::Bind("func=zelvek.certificate.import", form)), query.caller});
}

Import ReadImport(const Services& services, const Query& query) {
    const Parameters& parameters = query.parameters;
    const std::string certificates = parameters.Get("crt") + "\n" + parameters.Get("cacrt");
    const CertificateChain chain = SortChain(certificates, parameters.Get("key"));
    CheckHolds(chain.lifetime);
    if (IsPlaceholder(chain.leaf))
        throw Error(Code::kValue, "it is no certificate but the placeholder of one");
    if (chain.names.empty()) throw Error(Code::kBadNames, "the certificate is for no domain name");
    const Names names = InOrder(chain.names, str::Lower(parameters.Get("domain")));
    Import import{JobOf(services, query, names, chain.leaf), {}, chain.lifetime};
    const Job& job = import.job;
    import.request = {job.user_name, str::puny::Encode(job.certname), certificates, parameters.Get("key"),
                      names};
    return import;
}

/// Names that are in nobody's domain become the user's: the certificate and its key say that they were.
/// Returns those.
Names GiveFreeDomains(Transaction& transaction, const Job& job) {
    Names names;
    for (const std::string& name : str::Split(job.aliases, " "))
        names.push_back(names::WithoutWildcard(names::Canonical(name)));
    // What lies below another of the names needs no domain of its own.
    std::stable_sort(names.begin(), names.end(),
                     [](const auto& one, const auto& other) { return one.size() < other.size(); });
    Names added;
    for (const std::string& name : names) {
        if (domains::Holding(transaction, name)) continue;
        domains::Add(transaction, {0, name, name, job.user_name});
        added.push_back(name);
    }
    return added;
}

/// The number of the job that has just this certificate already; nothing where none has.
std::optional<int> HolderOf(Transaction& transaction, const Services& services, const Import& import) {
    const auto other = jobs::OfFolder(transaction, import.job.user_name, import.job.folder);
    if (!other || !jobs::FindShown(transaction, *other).verified) return std::nullopt;
    return install::IsInstalled(services.install, import.request) ? other : std::nullopt;
}

/// What does not depend on files: whose the names are, and who has the certificate.
Names CheckPlace(Transaction& transaction, const Services& services, const Query& query, Job& job) {
    if (job.authority.empty()) job.authority = job_authorities::Default(transaction);
    CheckAuthority(services, job.authority);
    CheckCertificateIsNew(transaction, job);
    Names added;
    if (!TakesForeignNames(query)) {
        added = GiveFreeDomains(transaction, job);
        CheckOwner(transaction, job.user_name, str::Split(job.aliases, " "));
    }
    return added;
}

/// The job as if its run had installed the certificate. Its renewal is planned as that of a later
/// certificate: nothing is issued before the usual time, so that many that are taken over at once do not come
/// early.
int AddInstalled(Transaction& transaction, const Import& import) {
    const int id = jobs::Add(transaction, import.job);
    Job job = jobs::Find(transaction, id);
    job.verified = true;
    jobs::Save(transaction, job);
    const auto validity =
        PlanRenewal(transaction, import.lifetime.from, import.lifetime.until, Certificate::kLater);
    restarts::SetValidity(transaction, job.user_name, import.job.folder, validity);
    history::Add(transaction, id,
                 {vek_date::DateTime().AsDateTime(), "verified", "certificate_imported",
                  "until " + import.lifetime.until.AsDateTime() + " UTC"});
    return id;
}

void TellOf(const Services& services, const Import& import, const Names& added, XmlAnswer& answer) {
    const Job& job = import.job;
    const auto place = install::PlaceOf(services.install, job.user_name, job.certname);
    answer.Doc()
        .Value("certname", job.certname)
        .Value("user_name", job.user_name)
        .Value("names", job.aliases)
        .Value("check_type", job.check_type)
        .Value("expires", import.lifetime.until.AsDateTime())
        .Value("place", names::MakeText(place.string()));
    for (const std::string& name : added) answer.Doc().Child("domain").Value("name", name);
}

/// Puts the certificate in place. Only what was there before is in a running web server's configuration, and
/// needs a reload.
void InstallImport(Services& services, const Import& import) {
    const install::Request& request = import.request;
    const auto place = install::PlaceOf(services.install, request.user, request.certname);
    const bool replaces = install::IsTaken(services.install, request.user, request.certname);
    if (replaces) services.reloader.Expect(request.user, request.certname, place);
    try {
        const InstalledCertificate installed = install::Install(services.install, request);
        if (replaces) services.reloader.Reload(installed);
        if (services.sites != nullptr)
            services.sites->Expect(request.user, request.certname, installed.directory);
    } catch (const Error&) {
        if (replaces && !install::IsInstalled(services.install, request))
            services.reloader.Forget(request.user, request.certname);
        throw;
    }
}

/// Checked, installed, and then added as a job: a service that is killed in between leaves files without a
/// job, which the same query finds and takes over.
void ImportCertificate(Services& services, const Query& query, XmlAnswer& answer) {
    const bool dry_run = query.parameters.Has("dry_run") && Flag(query, "dry_run");
    Import import = ReadImport(services, query);
    {
        Transaction transaction(services.store);
        if (AnsweredBefore(transaction, query, answer)) return;
        if (const auto holder = HolderOf(transaction, services, import)) {
            TellOf(services, import, {}, answer);
            answer.Doc().Value("id", *holder).Flag("already", true);
            return;
        }
        const Names added = CheckPlace(transaction, services, query, import.job);
        if (dry_run) {
            TellOf(services, import, added, answer);
            return;
        }
    }
    InstallImport(services, import);
    Transaction transaction(services.store);
    const Names added = CheckPlace(transaction, services, query, import.job);
    TellOf(services, import, added, answer);
    answer.Doc().Value("id", AddInstalled(transaction, import));
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

/// Where a certificate will be: something that the web server can start with. What is there stays.
void PutPlaceholder(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& certname = query.parameters.Get("certname");
    const std::string& user = query.parameters.Get("user_name");
    names::CheckCertname(certname);
    names::CheckUser(user);
    const std::string name = str::puny::Encode(certname);
    bool made = false;
    if (!install::IsTaken(services.install, user, name)) {
        const Placeholder placeholder = MakePlaceholder(name);
        made = install::InstallWhereNone(services.install,
                                         {user, name, placeholder.certificate, placeholder.key, {}});
    }
    const auto place = install::PlaceOf(services.install, user, name);
    answer.Doc().Value("place", names::MakeText(place.string())).Flag("made", made);
}

}  // namespace

Functions functions::CertificateImport() {
    return {{"zelvek.certificate.import", Right::kChange, &ImportCertificate},
            {"zelvek.certificate.placeholder", Right::kChange, &PutPlaceholder}};
}

}  // namespace zelvek
