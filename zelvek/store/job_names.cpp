#include "zelvek/store/job_names.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"

namespace zelvek::job_names {

namespace {

constexpr int kSome = 500;  // jobs in memory at once

/// "www.shop.example" as "example.shop.www.", and the other way round.
std::string Labels(std::string name) {
    std::string labels;
    while (!name.empty()) labels += str::RGetWord(name, '.') + ".";
    return labels;
}

std::string NameOf(std::string labels) {
    if (!labels.empty()) labels.pop_back();
    std::string name = Labels(labels);
    if (!name.empty()) name.pop_back();
    return name;
}

/// The names in the form in which they are found. Older versions kept some that have none.
std::set<std::string> LabelsOf(const std::string& names) {
    std::set<std::string> all;
    for (const std::string& name : str::Split(names, " ")) {
        try {
            all.insert(Labels(names::Canonical(name)));
        } catch (const Error&) {
            continue;
        }
    }
    all.erase("");
    return all;
}

struct Kept {
    int job = 0;
    std::string names;
};

std::vector<Kept> SomeAfter(Transaction& transaction, int id) {
    std::vector<Kept> some;
    Kept kept;
    Statement select =
        transaction.Prepare("SELECT id, aliases FROM job WHERE id > :after ORDER BY id LIMIT :most");
    select.With(id).With(kSome).Into(kept.job).Into(kept.names);
    while (select.Next()) some.push_back(kept);
    return some;
}

}  // namespace

void Set(Transaction& transaction, int job, const std::string& names) {
    transaction.Prepare("DELETE FROM job_name WHERE job = :job").With(job).Run();
    for (const std::string& labels : LabelsOf(names)) {
        transaction.Prepare("INSERT INTO job_name (labels, job) VALUES (:labels, :job)")
            .With(labels)
            .With(job)
            .Run();
    }
}

std::vector<int> JobsOf(Transaction& transaction, const std::string& name, int after, int limit) {
    Statement select = transaction.Prepare(
        "SELECT job FROM job_name WHERE labels = :labels AND job > :after ORDER BY job LIMIT :most");
    return select.With(Labels(name)).With(after).With(limit).Numbers();
}

std::vector<Named> Below(Transaction& transaction, const std::string& domain, const std::string& user,
                         const Named& after, int limit) {
    const std::string first = Labels(domain);
    std::string beyond = first;
    ++beyond.back();  // what follows the "." in the order of characters
    std::vector<Named> found;
    Named named;
    Statement select = transaction.Prepare(
        "SELECT labels, job FROM job_name WHERE labels >= :first AND labels < :beyond"
        " AND (labels, job) > (:labels, :job)"
        " AND EXISTS (SELECT 1 FROM job WHERE job.id = job_name.job AND job.user_name = :user)"
        " ORDER BY labels, job LIMIT :most");
    select.With(first).With(beyond).With(Labels(after.name)).With(after.job).With(user).With(limit);
    select.Into(named.name).Into(named.job);
    while (select.Next()) found.push_back({NameOf(named.name), named.job});
    return found;
}

void FillIn(Transaction& transaction) {
    if (transaction.Prepare("DELETE FROM setting WHERE name = 'names_missing'").Run() == 0) return;
    int last = 0;
    for (auto some = SomeAfter(transaction, last); !some.empty(); some = SomeAfter(transaction, last)) {
        for (const Kept& kept : some) Set(transaction, kept.job, kept.names);
        last = some.back().job;
    }
}

}  // namespace zelvek::job_names
