// Notifications: registered by runs, listed for people.
#include <map>
#include <optional>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

constexpr int kAtOnce = 500;

/// What a run tells when it has installed a certificate.
const std::string kSuccess = "ambrin_success";

/// The job that the caller runs; nothing for another caller, and where the job has been removed meanwhile.
std::optional<Job> JobOfCaller(Transaction& transaction, const Process& caller) try {
    const int id = runs::JobOf(transaction, caller);
    if (id == 0) return std::nullopt;
    return jobs::FindShown(transaction, id);
} catch (const Error& error) {
    if (error.code() != Code::kMissed) throw;
    return std::nullopt;
}

/// A run's notifications are about its job's certificate, whoever is told. Of another caller's the parameter
/// "name" says what they are about; without it each is a cause of its own.
void SetCause(Transaction& transaction, const Query& query, problems::Problem& problem) {
    if (const auto job = JobOfCaller(transaction, query.caller)) {
        problem.user = job->user_name;
        problem.about = names::ComparedFolderIfAny(job->certname);
        return;
    }
    problem.user = problem.owner == "root" ? "" : problem.owner;
    const std::string& name = query.parameters.Get("param_name");
    problem.about = name.empty() ? problem.id : name;
}

void Register(Services& services, const Query& query, XmlAnswer&) {
    const std::string prefix = "param_";
    problems::Problem problem{query.parameters.Get("id"),        query.parameters.Get("name"),
                              query.parameters.Get("level"),     query.parameters.Get("owner"),
                              vek_date::DateTime().AsDateTime(), {}};
    if (problem.owner.empty()) problem.owner = "root";
    problem.news = problem.name == kSuccess;
    for (const auto& [key, value] : query.parameters.All()) {
        names::CheckText(key, value);
        names::CheckText("the name of a parameter", key);
        if (key.starts_with(prefix)) problem.parameters.emplace_back(key.substr(prefix.size()), value);
    }
    if (problem.name.empty()) throw Error(Code::kValue, "name", "", "a notification needs a name");
    if (problem.id.empty()) throw Error(Code::kValue, "id", "", "a notification needs an id");

    Transaction transaction(services.store);
    SetCause(transaction, query, problem);
    problems::Raise(transaction, problem);
    transaction.Commit();
}

problems::State ProblemStateNamed(const std::string& name) {
    using problems::State;
    static const std::map<std::string, State> states{
        {"", State::kOpen},     {"open", State::kOpen},         {"raised", State::kRaised},
        {"seen", State::kSeen}, {"resolved", State::kResolved}, {"news", State::kNews},
        {"all", State::kAny}};
    const auto state = states.find(name);
    if (state != states.end()) return state->second;
    throw Error(
        Code::kValue, "state", name,
        "a state is \"open\", \"raised\", \"seen\", \"resolved\", \"news\" or \"all\", not \"" + name + "\"");
}

void ListProblems(Services& services, const Query& query, XmlAnswer& answer) {
    const Page page(query);
    const problems::State state = ProblemStateNamed(query.parameters.Get("state"));
    const std::string& user = query.parameters.Get("user_name");
    Transaction transaction(services.store);
    const std::string& told = query.parameters.Get("owner");
    const auto found = !told.empty() ? problems::OpenOf(transaction, told, page.after, page.limit)
                       : user.empty()
                           ? problems::List(transaction, state, page.after, page.limit)
                           : problems::ListOfUser(transaction, user, state, page.after, page.limit);
    for (const auto& problem : found) {
        XmlAnswer::Element element = answer.Elem();
        element.Value("number", problem.number)
            .Value("id", problem.id)
            .Value("name", problem.name)
            .Value("level", problem.level)
            .Value("owner", problem.owner)
            .Value("user_name", problem.user)
            .Value("state", problem.state)
            .Value("since", problem.since)
            .Value("time", problem.time)
            .Value("times", problem.times);
        for (const auto& [name, value] : problem.parameters) {
            element.Child("parameter").Value("name", name).Value("value", value);
        }
    }
}

/// What is done to one notification, or to some of all.
struct Deed {
    bool (*to_one)(Transaction& transaction, long long number);
    long long (*to_some)(Transaction& transaction, int limit);
};

/// Whether the notification is the one's whom the query names; every one is where it names nobody.
bool IsAskers(Transaction& transaction, const Query& query, long long number) {
    if (!query.parameters.Has("user_name")) return true;
    const auto problem = problems::Find(transaction, number);
    return problem && !problem->user.empty() && problem->user == query.parameters.Get("user_name");
}

/// One, or all that it can be done to.
void DoToProblems(const Deed& deed, Services& services, const Query& query, XmlAnswer& answer) {
    if (query.parameters.Has("number")) {
        const int number = Number(query, "number");
        Transaction transaction(services.store);
        if (!IsAskers(transaction, query, number) || !deed.to_one(transaction, number)) {
            const std::string text = std::to_string(number);
            throw Error(Code::kMissed, "problem", text, "there is no notification " + text);
        }
        transaction.Commit();
        answer.Doc().Value("count", 1);
        return;
    }
    if (query.parameters.Has("user_name"))
        throw Error(Code::kValue, "user_name", "", "of one user's notifications say the number, too");
    long long count = 0;
    for (long long found = kAtOnce; found >= kAtOnce; count += found) {
        // In steps, so that nobody waits long for the store.
        Transaction transaction(services.store);
        found = deed.to_some(transaction, kAtOnce);
        transaction.Commit();
    }
    answer.Doc().Value("count", count);
}

void SetSeen(Services& services, const Query& query, XmlAnswer& answer) {
    DoToProblems({&problems::SetSeen, &problems::SetSomeSeen}, services, query, answer);
}

void ClearProblems(Services& services, const Query& query, XmlAnswer& answer) {
    DoToProblems({&problems::Clear, &problems::ClearSome}, services, query, answer);
}

}  // namespace

Functions functions::Problems() {
    return {{"problems.register", Right::kOwn, &Register},
            {"zelvek.problem.list", Right::kRead, &ListProblems},
            {"zelvek.problem.seen", Right::kChange, &SetSeen},
            {"zelvek.problem.clear", Right::kChange, &ClearProblems}};
}

}  // namespace zelvek
