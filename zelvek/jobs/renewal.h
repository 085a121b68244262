#pragma once

#include <string>

#include "vek/date.h"
#include "zelvek/store/restarts.h"

/// When installed certificates are renewed.
namespace zelvek {

/// Whether a job has had a certificate before.
enum class Certificate { kFirst, kLater };

/// The renewal begins when a third of the lifetime is left, half of it for a certificate that lives less than
/// ten days, or somewhat earlier: `spread`, from 0 to 1, says how much of a quarter of what would be left. A
/// job's first certificate is renewed after a sixth of its lifetime at the soonest, by `spread` too, so that
/// a thousand jobs that were added in one hour do not stay together for ever. The authority is asked for a
/// better time within half a day.
restarts::Validity ValidityOf(const vek_date::DateTime& from, const vek_date::DateTime& until, double spread,
                              Certificate which = Certificate::kLater);

/// As `ValidityOf`, where of some moments by chance the one is taken in whose hour the fewest renewals are
/// planned.
restarts::Validity PlanRenewal(Transaction& transaction, const vek_date::DateTime& from,
                               const vek_date::DateTime& until, Certificate which);

/// A certificate that holds from one time until another was installed in the user's folder (`Job::folder`).
void NoteInstalled(Transaction& transaction, const std::string& user, const std::string& folder,
                   const vek_date::DateTime& from, const vek_date::DateTime& until);

/// Some number from 0 to 1.
double RandomSpread();

/// Starts the jobs anew whose renewal is due at `now`, and the stopped ones whose time has come, at most so
/// many at once that nobody waits long for the store; the next call goes on.
void StartDueAnew(Transaction& transaction, const std::string& now);

}  // namespace zelvek
