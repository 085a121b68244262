#pragma once

#include <string>
#include <vector>

#include "zelvek/base/authority.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/accounts.h"

/// The authorities as people see them.
namespace zelvek {

struct KnownAuthority {
    authorities::Authority authority;  // without directory and style where its plug-in is gone
    long long jobs = 0;
    bool is_default = false;  // of new jobs
    accounts::Account account = {};

    bool InUse() const { return jobs > 0 || is_default || !account.kid.empty(); }
};

/// `there`, those whose plug-ins are there, and after them those that jobs have besides.
std::vector<KnownAuthority> KnownAuthorities(std::vector<authorities::Authority> there,
                                             Transaction& transaction);

/// Errors: Error of code kMissed where no plug-in for it is there.
void CheckAuthority(const Services& services, const std::string& name);

}  // namespace zelvek
