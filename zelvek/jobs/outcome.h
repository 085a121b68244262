#pragma once

#include <span>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/history.h"

namespace zelvek {

/// What a run came to, as far as its repetition is concerned.
enum class Outcome {
    kOnItsWay,   // nothing failed: the next run goes on where this one ended
    kUnreached,  // an exchange failed, or the run died: that may be over soon
    kLimited,    // the authority asks for patience
    kRefused,    // the authority has refused something, or found a name not proved
    kForPeople,  // the panel has refused something that a person has to mend
    kUnfetched,  // the order was finalized: it may have a certificate, which the run did not get
    kCutShort,   // the run was ended while the order was finalized, or before it had the certificate
};

/// The word for it where runs are counted: "none" (of a run that is on its way), "unreached", "limited",
/// "refused", "for_people", "unfetched", "cut_short".
const char* Word(Outcome outcome);

/// By the run's events and return codes; `panel_refused` says whether a query of the run was refused.
Outcome OutcomeOf(const std::vector<history::Event>& events, bool panel_refused);

/// The same of a run that has written back this record at `now`. An order that goes on, since the run asks
/// for a time or keeps its challenges, is on its way. After a run that has died (`Job::died`) a refused
/// finalization is a refusal like any other.
Outcome OutcomeOfRun(const Job& job, const std::vector<history::Event>& events, const std::string& now);

/// Whether a run that ends with these events may have left a certificate at the authority. Its order was
/// finalized; an authority that finishes orders later takes every further request at the finalize URL for
/// another finalization, and refuses it.
bool MayHaveIssued(std::span<const history::Event> events);

/// Whether a run that ends with these events, and has installed nothing, was ended by somebody when all names
/// were proved: the order may have a certificate, and that is nobody's fault.
bool IsCutShort(std::span<const history::Event> events);

/// Whether the authority has found a name not proved.
bool IsFailedCheck(const history::Event& event);

}  // namespace zelvek
