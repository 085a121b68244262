#pragma once

#include <string>

#include "zelvek/store/store.h"

/// Accounts at the authority with their private keys, each kept once, however many jobs use it. One that
/// neither a job nor the panel uses any more is removed. Every function works inside the caller's
/// transaction.
namespace zelvek::accounts {

struct Account {
    std::string kid;      // its URL; empty as long as it is not registered
    std::string acmekey;  // PEM
    std::string modulus;  // the public key as a JSON Web Key

    bool operator==(const Account&) const = default;
};

/// What the job uses from now on; an account without any text is none.
void SetOfJob(Transaction& transaction, int job, const Account& account);

/// The panel-wide account that jobs without a working one of their own take: without any text where there is
/// none.
Account Default(Transaction& transaction);

/// Makes the job's account the panel-wide one.
void MakeDefault(Transaction& transaction, int job);

}  // namespace zelvek::accounts
