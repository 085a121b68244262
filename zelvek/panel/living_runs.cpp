#include "zelvek/panel/living_runs.h"

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

LivingRuns::LivingRuns(Services& services) : Transaction(services.store) {
    FreeJobsOfTheDead(*this, vek_date::DateTime().AsDateTime(), services.rules.Get()->retry);
}

Job JobOfUserAsked(Transaction& transaction, const Query& query, int id) {
    const std::string& user = query.parameters.Get("user_name");
    Job job = jobs::FindShown(transaction, id);
    if (user.empty() || job.user_name == user) return job;
    throw jobs::NoSuchJob(id);
}

int JobAsked(Transaction& transaction, const Query& query) {
    const int id = Number(query, "elid");
    if (query.parameters.Has("user_name")) {
        // Whoever passes on a user's name has forgotten it where it is empty: that is nobody's job then.
        if (query.parameters.Get("user_name").empty()) throw jobs::NoSuchJob(id);
        JobOfUserAsked(transaction, query, id);
    }
    return id;
}

Job FindIdle(Transaction& transaction, int id) {
    Job job = jobs::FindShown(transaction, id);
    if (job.processing) {
        throw Error(Code::kBusy, "ambrin.data", std::to_string(id),
                    "job " + std::to_string(id) + " is running already");
    }
    return job;
}

Job FindStartable(Transaction& transaction, int id) {
    Job job = FindIdle(transaction, id);
    if (job.paused) {
        const std::string number = std::to_string(id);
        throw Error(Code::kBusy, "ambrin.data", number,
                    "job " + number + " is paused; \"zelvek job resume " + number + "\" ends that");
    }
    return job;
}

}  // namespace zelvek
