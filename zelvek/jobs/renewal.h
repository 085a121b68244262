#pragma once

#include <string>

#include "vek/date.h"
#include "zelvek/store/restarts.h"

/// When installed certificates are renewed.
namespace zelvek {

/// The renewal begins when a third of the lifetime is left, half of it for a certificate that lives less than
/// ten days, or somewhat earlier: `spread`, from 0 to 1, says how much of a quarter of what would be left. So
/// the certificates that were ordered in one hour are not all renewed in one. The authority is asked for a
/// better time within half a day, by `spread` too.
restarts::Validity ValidityOf(const vek_date::DateTime& from, const vek_date::DateTime& until, double spread);

/// Some number from 0 to 1.
double RandomSpread();

/// Starts the jobs anew whose renewal is due at `now`, and the stopped ones whose time has come, at most so
/// many at once that nobody waits long for the store; the next call goes on.
void StartDueAnew(Transaction& transaction, const std::string& now);

}  // namespace zelvek
