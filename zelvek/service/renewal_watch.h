#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "zelvek/base/job.h"
#include "zelvek/base/periodic.h"
#include "zelvek/certificates/renewal_info.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/restarts.h"

namespace zelvek {

/// What the authority's answer makes of a certificate's times: renewed in the suggested window where that
/// ends before the certificate does, unless it is due already; asked for again after half a day at the
/// soonest, or when the authority says. `name` is the certificate's name there.
restarts::Validity Suggested(const Job& job, const std::string& name,
                             const renewal_info::Suggestion& suggestion, const std::string& now);

/// The authorities that are asked, each by its own directory.
class AskedAuthorities {
public:
    /// The URL of the directory of the authority of this name; empty where nobody knows it.
    using DirectoryOf = std::function<std::string(const std::string& name)>;

    explicit AskedAuthorities(DirectoryOf directory_of) : directory_of_(std::move(directory_of)) {}

    /// Null where nobody knows its directory; nothing is asked before `Ask`.
    renewal_info::Authority* Of(const std::string& name);

    /// Nobody is to ask any more, on whatever thread; a question under way takes seconds.
    void End() { ending_ = true; }
    bool Ending() const { return ending_; }

private:
    DirectoryOf directory_of_;
    std::map<std::string, renewal_info::Authority> by_directory_;
    std::atomic<bool> ending_{false};
};

/// Asks their authorities when to renew the certificates whose time to ask has come, some of them. Where one
/// does not answer they are renewed as they would be without it, and it is asked again half a day later.
void AskForRenewals(Services& services, AskedAuthorities& authorities);

/// Does that on a thread of its own, at once and then after each interval.
class RenewalWatch {
public:
    RenewalWatch(Services& services, std::chrono::milliseconds interval)
        : authorities_([&services](const std::string& name) {
              const auto found = authorities::Find(services.plugins, name);
              return found ? found->directory : std::string();
          }),
          asking_("renewal information", interval,
                  [this, &services] { AskForRenewals(services, authorities_); }) {}

    /// Asks for nothing more.
    void End() { authorities_.End(); }

private:
    AskedAuthorities authorities_;
    Periodic asking_;
};

}  // namespace zelvek
