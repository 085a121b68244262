#include "problem.h"

#include "ambrin_data.h"
#include "ambrin_log.h"
#include "vek/str.h"

namespace {

constexpr std::size_t kIdBytes = 8;

std::map<std::string, std::string> ProblemParameters(const AmbrinProblem& problem, const std::string& owner,
                                                     const std::string& name) {
    std::map<std::string, std::string> query;
    query["name"] = name;
    query["id"] = str::hex::Encode(str::Random(kIdBytes));
    query["level"] = problem.level;
    for (const auto& [key, value] : problem.parameters) query["param_" + key] = value;
    if (owner != "root") query["owner"] = owner;
    return query;
}

}  // namespace

void RegisterProblemAmbrin(const AmbrinProblem& problem) {
    for (const auto& [owner, name] : problem.targets)
        ambrin_data.client.Query("func=problems.register&sok=ok", ProblemParameters(problem, owner, name));
}

void StopWithProblem(const std::string& error) {
    Trace("Ambrin stop trying");
    AmbrinProblem problem;
    problem.level = "error";
    problem.targets = JobTargets("ambrin_failed_admin", "ambrin_failed_user");
    problem.parameters = {{"name", ambrin_data.certname}, {"error", error}};
    RegisterProblemAmbrin(problem);
    ambrin_data.failed = true;
}

std::map<std::string, std::string> JobTargets(const std::string& admin_problem,
                                              const std::string& user_problem) {
    std::map<std::string, std::string> targets;
    targets["root"] = admin_problem;
    targets[ambrin_data.user_name] = user_problem;
    if (!ambrin_data.res_name.empty()) targets[ambrin_data.res_name] = user_problem;
    return targets;
}
