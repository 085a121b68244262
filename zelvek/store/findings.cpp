#include "zelvek/store/findings.h"

namespace zelvek::findings {

void Ask(Transaction& transaction, int job, const std::string& time) {
    Forget(transaction, job);
    transaction.Prepare("INSERT INTO examination (job, asked) VALUES (:job, :asked)")
        .With(job)
        .With(time)
        .Run();
}

std::vector<int> TakeAsked(Transaction& transaction, int limit) {
    std::vector<int> jobs;
    {
        Statement select =
            transaction.Prepare("SELECT job FROM examination ORDER BY asked, job LIMIT :limit");
        jobs = select.With(limit).Numbers();
    }
    for (const int job : jobs)
        transaction.Prepare("DELETE FROM examination WHERE job = :job").With(job).Run();
    return jobs;
}

void Put(Transaction& transaction, int job, const std::vector<Finding>& found) {
    transaction.Prepare("DELETE FROM finding WHERE job = :job").With(job).Run();
    int number = 0;
    for (const Finding& finding : found) {
        transaction
            .Prepare(
                "INSERT INTO finding (job, number, name, place, state, detail, time)"
                " VALUES (:job, :number, :name, :place, :state, :detail, :time)")
            .With(job)
            .With(number++)
            .With(finding.name)
            .With(finding.place)
            .With(finding.state)
            .With(finding.detail)
            .With(finding.time)
            .Run();
    }
}

std::vector<Finding> Of(Transaction& transaction, int job) {
    std::vector<Finding> found;
    Finding finding;
    Statement select = transaction.Prepare(
        "SELECT name, place, state, detail, time FROM finding WHERE job = :job ORDER BY number");
    select.With(job).Into(finding.name).Into(finding.place).Into(finding.state).Into(finding.detail);
    select.Into(finding.time);
    while (select.Next()) found.push_back(finding);
    return found;
}

void Forget(Transaction& transaction, int job) {
    transaction.Prepare("DELETE FROM examination WHERE job = :job").With(job).Run();
    transaction.Prepare("DELETE FROM finding WHERE job = :job").With(job).Run();
}

}  // namespace zelvek::findings
