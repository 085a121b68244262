#pragma once

#include <string>

#include "zelvek/store/store.h"

/// Accounts at authorities with their private keys, each kept once, however many jobs use it; an account
/// belongs to the authority of its jobs. One that neither a job nor the panel uses any more is removed. Every
/// function works inside the caller's transaction.
namespace zelvek::accounts {

struct Account {
    std::string kid;      // its URL; empty as long as it is not registered
    std::string acmekey;  // PEM
    std::string modulus;  // the public key as a JSON Web Key

    bool operator==(const Account&) const = default;
};

/// What the job uses from now on; an account without any text is none.
void SetOfJob(Transaction& transaction, int job, const Account& account);

/// The panel-wide account that an authority's jobs without a working one of their own take: without any text
/// where there is none.
Account Default(Transaction& transaction, const std::string& authority);

/// Makes the job's account the panel-wide one of the job's authority.
void MakeDefault(Transaction& transaction, int job);

}  // namespace zelvek::accounts
