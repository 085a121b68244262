// Requests with their keys, and the installation of what came of them.
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/names.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/request.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

std::string AsciiCertname(const std::string& certname) {
    names::CheckCertname(certname);
    return str::puny::Encode(certname);
}

void MakeAndKeep(Services& services, const Query& query) {
    const std::string name = AsciiCertname(query.parameters.Get("certname_ascii"));
    names::CheckUser(query.parameters.Get("su"));
    const auto domains = str::Split(query.parameters.Get("domain"), " ");
    for (const std::string& domain : domains) names::CheckDomain(domain, true);
    // A key takes a while: made before the store is locked.
    const Csr csr = MakeCsr(domains, query.parameters);

    Transaction transaction(services.store);
    requests::Put(transaction, name, query.caller, {csr.request, csr.key}, vek_date::DateTime().AsDateTime());
    transaction.Commit();
}

void Give(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& name = query.parameters.Get("elid");
    Transaction transaction(services.store);
    const auto csr = requests::Find(transaction, name, query.caller);
    if (!csr) throw Error(Code::kMissed, "sslcert.csr", name, "there is no request named \"" + name + "\"");
    answer.Doc().Value("csr_req", csr->request).Value("csr_pk", csr->key);
}

void EditCsr(Services& services, const Query& query, XmlAnswer& answer) {
    query.parameters.Has("domain") ? MakeAndKeep(services, query) : Give(services, query, answer);
}

void DeleteCsr(Services& services, const Query& query, XmlAnswer&) {
    Transaction transaction(services.store);
    requests::Remove(transaction, query.parameters.Get("elid"), query.caller);
    transaction.Commit();
}

/// The renewal goes by what lies in the web server's way.
void NoteValidity(Services& services, const std::string& user, const std::string& certname) {
    const auto lifetime = install::InstalledLifetime(services.install, user, certname);
    if (!lifetime) return;
    Transaction transaction(services.store);
    NoteInstalled(transaction, user, names::ComparedFolder(certname), lifetime->from, lifetime->until);
    transaction.Commit();
}

/// What the caller's job wants the certificate for, canonical; empty for a caller without such a job.
std::vector<std::string> NamesAskedFor(Services& services, const Process& caller,
                                       const std::string& certname) {
    Transaction transaction(services.store);
    const int id = runs::JobOf(transaction, caller);
    if (id == 0) return {};
    const Job job = jobs::FindShown(transaction, id);
    std::vector<std::string> names;
    if (str::puny::Encode(job.certname) != certname) return names;
    for (const std::string& name : str::Split(job.aliases, " ")) names.push_back(names::Canonical(name));
    return names;
}

void InstallCertificate(Services& services, const Query& query, XmlAnswer&) {
    const std::string& user = query.parameters.Get("user");
    std::string certname = query.parameters.Get("elid");
    const std::string owner = str::GetWord(certname, "%#%");
    names::CheckUser(user);
    if (owner != user) {
        throw Error(Code::kValue, "elid", owner,
                    "the certificate belongs to \"" + owner + "\", not to \"" + user + "\"");
    }
    const std::string name = AsciiCertname(certname);
    services.reloader.Expect(user, name, install::PlaceOf(services.install, user, name));
    const install::Request request{user, name,
                                   query.parameters.Get("crt") + "\n" + query.parameters.Get("cacrt"),
                                   query.parameters.Get("key"), NamesAskedFor(services, query.caller, name)};
    try {
        const InstalledCertificate installed = install::Install(services.install, request);
        NoteValidity(services, user, name);
        LogToJournal(Happening::kInstalled, {.certname = name, .user = user},
                     user + "'s certificate " + name + " is installed");
        services.reloader.Reload(installed);
        if (services.sites != nullptr) services.sites->Expect(user, name, installed.directory);
    } catch (const Error&) {
        // Where a disk failed, the certificate may be in place all the same.
        if (!install::IsInstalled(services.install, request)) services.reloader.Forget(user, name);
        throw;
    }
}

}  // namespace

Functions functions::Certificates() {
    return {{"sslcert.csr.edit", Right::kOwn, &EditCsr},
            {"sslcert.csr.delete", Right::kOwn, &DeleteCsr},
            {"sslcert.hardreplace", Right::kOwn, &InstallCertificate}};
}

}  // namespace zelvek
