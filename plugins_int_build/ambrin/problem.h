#pragma once

#include <map>
#include <string>

/// One notification of the panel's "problems", for one or more addressees.
struct AmbrinProblem {
    std::string level;                              // "error" or "message"
    std::map<std::string, std::string> parameters;  // of the notification's text
    std::map<std::string, std::string> targets;     // owner to problem name; "root" is the administrator
};

/// Sends the notification once per target, in the order of the owners. Errors: vek_err::Error of the panel
/// query; the targets after it are not notified then.
void RegisterProblemAmbrin(const AmbrinProblem& problem);

/// Notifies the administrator, the owning user and the further addressee that the job has failed with this
/// error, and marks it failed for good. The run itself is ended by the caller. Errors: as above; the job is
/// not marked then.
void StopWithProblem(const std::string& error);

/// The targets of a job's problem: the administrator with `admin_problem`; the owner and, where there is one,
/// the further addressee with `user_problem`. An owner whose name is "root" takes the administrator's place.
std::map<std::string, std::string> JobTargets(const std::string& admin_problem,
                                              const std::string& user_problem);
