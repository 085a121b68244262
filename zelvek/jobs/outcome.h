#pragma once

#include <vector>

#include "zelvek/store/history.h"

namespace zelvek {

/// What a run came to, as far as its repetition is concerned.
enum class Outcome {
    kOnItsWay,   // nothing failed: the next run goes on where this one ended
    kUnreached,  // an exchange failed, or the run died: that may be over soon
    kLimited,    // the authority asks for patience
    kRefused,    // the authority has refused something, or found a name not proved
    kForPeople,  // the panel has refused something that a person has to mend
};

/// By the run's events and return codes; `panel_refused` says whether a query of the run was refused.
Outcome OutcomeOf(const std::vector<history::Event>& events, bool panel_refused);

/// Whether the authority has found a name not proved.
bool IsFailedCheck(const history::Event& event);

}  // namespace zelvek
