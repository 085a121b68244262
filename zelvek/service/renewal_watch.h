#pragma once

#include <chrono>
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

/// Asks the authority when to renew the certificates whose time to ask has come, some of them. Where it does
/// not answer they are renewed as they would be without it, and it is asked again half a day later.
void AskForRenewals(Services& services, renewal_info::Authority& authority);

/// Does that on a thread of its own, at once and then after each interval.
class RenewalWatch {
public:
    /// `directory` is the authority's.
    RenewalWatch(Services& services, const std::string& directory, std::chrono::milliseconds interval)
        : authority_(directory), asking_("renewal information", interval, [this, &services] {
              AskForRenewals(services, authority_);
          }) {}

    /// Asks for nothing more.
    void End() { authority_.End(); }

private:
    renewal_info::Authority authority_;
    Periodic asking_;
};

}  // namespace zelvek
