#include "zelvek/store/job_authorities.h"

#include "zelvek/base/authority.h"

namespace zelvek::job_authorities {

std::string Default(Transaction& transaction) {
    std::string name = authorities::kFirst;
    transaction.Prepare("SELECT value FROM setting WHERE name = 'default_authority'").Into(name).Next();
    return name;
}

void SetDefault(Transaction& transaction, const std::string& name) {
    transaction
        .Prepare(
            "INSERT INTO setting (name, value) VALUES ('default_authority', :name)"
            " ON CONFLICT (name) DO UPDATE SET value = excluded.value")
        .With(name)
        .Run();
}

std::map<std::string, long long> Counts(Transaction& transaction) {
    std::map<std::string, long long> counts;
    std::string name;
    long long jobs = 0;
    Statement select = transaction.Prepare("SELECT authority, jobs FROM authority_count");
    select.Into(name).Into(jobs);
    while (select.Next()) counts[name] = jobs;
    return counts;
}

}  // namespace zelvek::job_authorities
