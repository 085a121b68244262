#include "zelvek/service/renewal_watch.h"

#include <algorithm>
#include <exception>
#include <set>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"

namespace zelvek {

namespace {

using vek_date::DateTime;

constexpr int kAskedAtOnce = 20;
constexpr int kHalfDay = 12 * 3600;      // seconds
constexpr int kLongest = 3 * 24 * 3600;  // whatever an authority says

std::string After(const std::string& now, int time) {
    return DateTime(now).AddSeconds(time).AsDateTime();
}

}  // namespace

restarts::Validity Suggested(const Job& job, const std::string& name,
                             const renewal_info::Suggestion& suggestion, const std::string& now) {
    restarts::Validity validity{job.expires, job.renew,
                                After(now, std::clamp(suggestion.retry_after, kHalfDay, kLongest))};
    if (!suggestion.window || job.renew <= now) return validity;
    const std::string moment =
        renewal_info::Within(*suggestion.window, renewal_info::ShareOf(name)).AsDateTime();
    // Whatever is suggested: a site is not to be without a certificate.
    if (suggestion.window->end.AsDateTime() < job.expires) validity.renew = std::max(moment, now);
    return validity;
}

renewal_info::Authority* AskedAuthorities::Of(const std::string& name) {
    const std::string directory = directory_of_(name);
    if (directory.empty()) return nullptr;
    return &by_directory_.try_emplace(directory, directory).first->second;
}

void AskForRenewals(Services& services, AskedAuthorities& authorities) {
    const std::string now = DateTime().AsDateTime();
    std::vector<Job> some;
    {
        Transaction transaction(services.store);
        some = restarts::RenewalToAskFor(transaction, now, kAskedAtOnce);
    }
    std::set<std::string> away;
    for (const Job& job : some) {
        if (authorities.Ending()) return;
        renewal_info::Authority* const authority = authorities.Of(job.authority);
        const bool asked = authority != nullptr && !away.contains(job.authority);
        restarts::Validity validity{job.expires, job.renew, After(now, kHalfDay)};
        const std::string name = install::InstalledRenewalName(services.install, job.user_name, job.certname);
        try {
            if (!name.empty() && asked) validity = Suggested(job, name, authority->Ask(name), now);
        } catch (const std::exception& error) {
            Log("job " + std::to_string(job.id) + ": asking when to renew its certificate: " + error.what());
            // Where no answer comes, the others of this round would wait for the same.
            if (dynamic_cast<const Error*>(&error) == nullptr) away.insert(job.authority);
        }
        Transaction transaction(services.store);
        restarts::SetRenewal(transaction, job, validity.renew, validity.ask);
        transaction.Commit();
    }
}

}  // namespace zelvek
