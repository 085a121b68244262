// Jobs added, edited, removed.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <map>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/reloader.h"
#include "zelvek/certificates/site_watch.h"
#include "zelvek/panel/authorities.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_form.h"
#include "zelvek/panel/living_runs.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/store/history.h"
#include "zelvek/store/job_authorities.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/restarts.h"

namespace zelvek {

namespace {

using Names = std::vector<std::string>;

void AddJob(Services& services, const Query& query, XmlAnswer& answer) {
    Job job = NewJob(query);
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    if (job.authority.empty()) job.authority = job_authorities::Default(transaction);
    CheckAuthority(services, job.authority);
    if (!TakesForeignNames(query)) CheckOwner(transaction, job.user_name, str::Split(job.aliases, " "));
    CheckCertificateIsNew(transaction, job);
    answer.Doc().Value("id", jobs::Add(transaction, job));
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

/// What cannot be edited: whose the certificate is, which says whose job is meant, and where it lies.
constexpr const char* kFixed = "certname";

/// What the job becomes: its own parameters, but for what the query says. Of the request everything is new
/// where any of it is; "plain_csr" alone leaves nothing of it.
Job EditedJob(const Query& query, const Job& before) {
    std::map<std::string, std::string> form = FormOf(before);
    const auto says = [&](const std::string& beginning) {
        const auto& all = query.parameters.All();
        return std::any_of(all.begin(), all.end(),
                           [&](const auto& one) { return one.first.starts_with(beginning); });
    };
    if (says("csr_") || says("plain_csr"))
        std::erase_if(form, [](const auto& one) { return one.first.starts_with("csr_"); });
    for (const auto& [key, value] : query.parameters.All()) {
        if (key == kFixed)
            throw Error(Code::kValue, key, value,
                        "the \"" + key + "\" of a job stays as it is: add another job");
        form[key] = value;
    }
    return NewJob({Parameters(vek_client::Bind("func=zelvek.job.edit", form)), query.caller});
}

/// Names that the job did not have before.
Names NewNames(const Job& edited, const Job& before) {
    Names known;
    for (const std::string& name : str::Split(before.aliases, " ")) known.push_back(names::Canonical(name));
    Names fresh;
    for (const std::string& name : str::Split(edited.aliases, " ")) {
        if (std::find(known.begin(), known.end(), names::Canonical(name)) == known.end())
            fresh.push_back(name);
    }
    return fresh;
}

/// The job begins anew with its new parameters, without its account where its authority is another one; the
/// certificate that it has installed stays until the new one is there. Names that it had already are not
/// asked for their owner again.
void EditJob(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    const std::string now = vek_date::DateTime().AsDateTime();
    {
        LivingRuns transaction(services);
        if (AnsweredBefore(transaction, query, answer)) return;
        FindIdle(transaction, JobAsked(transaction, query));
        const Job before = jobs::Find(transaction, id);
        Job edited = EditedJob(query, before);
        edited.id = id;
        if (edited.authority != before.authority) CheckAuthority(services, edited.authority);
        if (!TakesForeignNames(query)) CheckOwner(transaction, before.user_name, NewNames(edited, before));
        publications::SetUnwanted(transaction, id);
        jobs::Edit(transaction, edited);
        restarts::StartAnew(transaction, id, now, false);
        restarts::Retry(transaction, id, now);
        history::Add(transaction, id, {now, "processing", "job_edited", edited.aliases});
        RememberAnswer(transaction, query, answer);
        transaction.Commit();
    }
    services.publisher.RemoveUnwanted(id);
}

/// Of versions that let several jobs have one certificate.
void CheckNobodyElseHas(Transaction& transaction, const Job& job) {
    const auto other = jobs::OfFolder(transaction, job.user_name, job.folder);
    if (!other || job.folder.empty()) return;
    throw Error(Code::kBusy, "certname", job.certname,
                "job " + std::to_string(*other) + " has the certificate \"" + job.certname + "\", too");
}

/// The job is gone by then, whatever becomes of its certificate.
void RemoveCertificate(Services& services, const Job& job, const std::string& place) {
    try {
        install::Remove(services.install, job.user_name, job.certname);
    } catch (const Error& error) {
        throw Error(error.code(), "job " + std::to_string(job.id) +
                                      " is removed, but its certificate is not: " + error.what() +
                                      "; remove " + place + " by hand");
    }
    Transaction transaction(services.store);
    EndReload(transaction, job.user_name, str::puny::Encode(job.certname));
    ForgetSite(transaction, job.user_name, names::ComparedFolderIfAny(job.certname));
    transaction.Commit();
}

/// Where the job's certificate lies; empty where none does.
std::string PlaceOfCertificate(const Services& services, const Job& job) try {
    const auto place = install::PlaceOf(services.install, job.user_name, job.certname);
    return std::filesystem::exists(place) ? place.string() : "";
} catch (const std::exception&) {
    return "";
}

void RemoveJob(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    const bool certificate = query.parameters.Has("certificate") && Flag(query, "certificate");
    Job job;
    std::string place;
    {
        LivingRuns transaction(services);
        if (AnsweredBefore(transaction, query, answer)) return;
        job = FindIdle(transaction, JobAsked(transaction, query));
        place = PlaceOfCertificate(services, job);
        publications::SetUnwanted(transaction, id);
        const std::string folder = names::ComparedFolderIfAny(job.certname);
        problems::ResolveOfCertificate(transaction, job.user_name, folder);
        ForgetSite(transaction, job.user_name, folder);
        jobs::Remove(transaction, id);
        if (certificate) CheckNobodyElseHas(transaction, job);
        if (!place.empty()) {
            answer.Doc()
                .Value("place", names::MakeText(place))
                .Flag("placeholder",
                      install::HoldsPlaceholder(services.install, job.user_name, job.certname));
        }
        RememberAnswer(transaction, query, answer);
        transaction.Commit();
    }
    services.publisher.RemoveUnwanted(id);
    if (certificate) RemoveCertificate(services, job, place);
}

}  // namespace

Functions functions::JobChanges() {
    return {{"zelvek.job.add", Right::kChange, &AddJob},
            {"zelvek.job.edit", Right::kChange, &EditJob},
            {"zelvek.job.remove", Right::kChange, &RemoveJob}};
}

}  // namespace zelvek
