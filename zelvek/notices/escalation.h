#pragma once

#include <string>

#include "vek/date.h"
#include "zelvek/base/job.h"

/// When people are told that a certificate comes to its end, or that none ever comes. The functions of this
/// file know no clock and no store: what they are asked twice they answer twice alike.
namespace zelvek::notices {

/// What is to be told of a job, and when to look at it again.
struct Escalation {
    enum class Tell { kNothing, kEnding, kEnded, kMissing };

    Tell tell = Tell::kNothing;
    int days = 0;            // of kEnding: the step, 14, 7, 3 or 1
    std::string level = {};  // of what is told: "notice", "warning", "error", "critical"
    int step = 0;            // the job's `notice_step` from now on
    std::string look = {};   // its `notice_due`; empty: when one of its runs fails

    bool operator==(const Escalation&) const = default;
};

/// An installed certificate that should have been renewed and was not: told 14, 7, 3 and 1 days before its
/// end, each step once, of several that have passed the last one alone. The renewal of one with a short life
/// begins later than that: of its steps those after the beginning count, and only when a run has failed. When
/// it has ended: told at once, and weekly while that is so.
///
/// A job that has never had a certificate: told when it has been stopped or three of its runs have failed one
/// after the other, and weekly while that is so.
///
/// Of a job whose times cannot be read nothing is told.
Escalation EscalationOf(const Job& job, const vek_date::DateTime& now);

}  // namespace zelvek::notices
