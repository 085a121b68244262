#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/reloads.h"
#include "zelvek/store/served.h"

namespace zelvek {

/// What is known about a job.
struct JobFacts {
    Job job;                                     // as lists have it
    std::vector<history::Event> events;          // the newest ones, in their order
    std::vector<findings::Finding> findings;     // of the last examination
    std::optional<reloads::Reload> reload = {};  // where the web server lacks the installed certificate
    std::optional<served::Served> served = {};   // what the web server shows of the installed certificate
    std::string now;                             // date and time
};

/// For people: one line each, plain text.
struct Reason {
    std::string sentence;  // what the job does next and when, or why it does not go on and what helps
    std::vector<std::string> details;  // what the sentence leaves out
};

/// Goes by the job's fields, by its events and their return codes, and by words of a fixed set alone; texts
/// from outside are quoted, and decide nothing.
Reason ReasonOf(const JobFacts& facts);

}  // namespace zelvek
