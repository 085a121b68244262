#pragma once

#include "vek/date.h"
#include "zelvek/store/store.h"

namespace zelvek::notices {

/// Looks at the jobs whose time for that has come (`Job::notice_due`), and raises what `EscalationOf` says:
/// "certificate_ending" and "certificate_missing", for the administrator, the job's user and its further
/// addressee. At most so many jobs that nobody waits long for the store; the next call goes on.
void WatchCertificates(Store& store, const vek_date::DateTime& now);

}  // namespace zelvek::notices
