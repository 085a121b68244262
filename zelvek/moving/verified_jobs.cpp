#include "zelvek/moving/verified_jobs.h"

#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/store.h"

namespace zelvek::moving {

namespace {

constexpr int kPage = 500;

/// Empty for a name that cannot be installed: older versions took such ones.
std::string FolderOf(const Job& job) try {
    return names::CertificateFolder(job.certname);
} catch (const Error&) {
    return "";
}

}  // namespace

std::vector<VerifiedJob> VerifiedJobsOf(const std::filesystem::path& database) {
    Store store(database);
    Transaction transaction(store);
    std::vector<VerifiedJob> found;
    for (jobs::Selection page{0, kPage, "", jobs::State::kAny};;) {
        const std::vector<Job> jobs = jobs::List(transaction, page);
        for (const Job& job : jobs) {
            if (!job.verified) continue;
            found.push_back({job.id,
                             {job.user_name, FolderOf(job)},
                             names::ComparedFolderIfAny(job.certname),
                             job.expires});
        }
        if (jobs.empty()) return found;
        page.after = jobs.back().id;
    }
}

}  // namespace zelvek::moving
