#pragma once

#include <string>

namespace zelvek {

/// What went wrong, as the beginning of a sentence, and what a person can do about it, as a further part of
/// it. "%s" in it is the name that was checked, or "one of the names".
struct Advice {
    std::string problem;
    std::string remedy;
};

/// Whether this is the last part of one of the types of RFC 8555 section 6.7, such as "rateLimited".
bool IsProblemType(const std::string& type);

/// What ended a run.
struct Ending {
    std::string event;
    std::string type;        // the authority's problem, empty where it is not known
    int code = 0;            // the status that was told; 0 for none
    std::string check_type;  // of the job: "http" or "dns"
    bool unfetched = false;  // its order may have a certificate (`MayHaveIssued`)
};

/// Goes by the problem's type, then by the status, then by the event; of an order that may have a certificate
/// by the event, unless the authority says what it does not take.
Advice AdviceFor(const Ending& ending);

}  // namespace zelvek
