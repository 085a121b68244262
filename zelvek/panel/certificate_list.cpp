// Installed certificates as people see them.
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/certificates/install.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/living_runs.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/served.h"

namespace zelvek {

namespace {

using job_lists::Place;

constexpr int kMostFiles = 500;  // files that one query reads

/// "KEY/ID", as a page has given it, or a job's number.
Place PlaceAfter(Transaction& transaction, const Query& query) {
    std::string text = query.parameters.Get("after");
    if (text.empty()) return {};
    const bool number = text.find_first_not_of("0123456789") == std::string::npos;
    if (number) {
        const Job job = JobOfUserAsked(transaction, query, Number(query, "after"));
        return {job.expires, job.id};
    }
    const bool whole = text.find('/') != std::string::npos;
    const std::string id = str::RGetWord(text, '/');
    if (whole && !id.empty() && id.find_first_not_of("0123456789") == std::string::npos)
        return {text, str::Int(id)};
    throw Error(Code::kValue, "after", id, "\"after\" is neither a job nor a place in this list");
}

struct Shown {
    Job job;
    std::optional<served::Served> served;
};

std::vector<Shown> FilesShown(Services& services, const Query& query, int limit) {
    Transaction transaction(services.store);
    const job_lists::Selection selection{job_lists::Kind::kEnding, query.parameters.Get("user_name"),
                                         PlaceAfter(transaction, query), limit, "9999-12-31 23:59:59"};
    std::vector<Shown> page;
    for (Job& job : job_lists::Some(transaction, selection)) {
        auto served = served::Find(transaction, job.user_name, names::ComparedFolderIfAny(job.certname));
        page.push_back({std::move(job), std::move(served)});
    }
    return page;
}

std::string WordOf(const std::optional<served::Served>& served) {
    if (!served || served->state == served::kUnreachable) return "unknown";
    return served->state == served::kServed ? "yes" : "no";
}

/// Empty for a name that cannot be installed: older versions took such ones.
std::string PathOf(const Services& services, const Job& job) try {
    return install::PlaceOf(services.install, job.user_name, job.certname);
} catch (const Error&) {
    return "";
}

void AddCertificate(const Services& services, const Shown& shown, XmlAnswer& answer) {
    const Job& job = shown.job;
    XmlAnswer::Element element = answer.Elem();
    element.Value("id", job.id)
        .Value("place", names::MakeText(job.expires + "/" + std::to_string(job.id)))
        .Value("certname", job.certname)
        .Value("user_name", job.user_name)
        .Value("path", names::MakeText(PathOf(services, job)))
        .Value("served", WordOf(shown.served))
        .Value("served_time", shown.served ? shown.served->time : "")
        .Value("served_detail", shown.served ? names::MakeText(shown.served->detail) : "");
    const auto certificate = install::DescribeInstalled(services.install, job.user_name, job.certname);
    element.Flag("readable", certificate.has_value());
    if (!certificate) return;
    std::string all;
    for (const std::string& name : certificate->names) str::inpl::Append(all, name, " ");
    element.Value("names", names::MakeText(all))
        .Value("issuer", names::MakeText(certificate->issuer))
        .Value("from", certificate->lifetime.from.AsDateTime())
        .Value("expires", certificate->lifetime.until.AsDateTime())
        .Value("key_kind", certificate->key_kind)
        .Value("key_size", certificate->key_size);
}

/// Of the jobs that have installed one, by its end. The files are read while others use the store.
void ListCertificates(Services& services, const Query& query, XmlAnswer& answer) {
    const int limit = query.parameters.Has("limit") ? Number(query, "limit") : kMostFiles;
    if (limit < 1 || limit > kMostFiles)
        throw Error(Code::kValue, "limit", std::to_string(limit), "\"limit\" is a number from 1 to 500");
    for (const Shown& shown : FilesShown(services, query, limit)) AddCertificate(services, shown, answer);
}

}  // namespace

Functions functions::CertificateList() {
    return {{"zelvek.certificate.list", Right::kRead, &ListCertificates}};
}

}  // namespace zelvek
