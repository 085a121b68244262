#include "zelvek/notices/watch.h"

#include <set>
#include <string>

#include "vek/str.h"
#include "zelvek/base/html_text.h"
#include "zelvek/notices/escalation.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"

namespace zelvek::notices {

namespace {

constexpr int kLookedAtOnce = 100;

/// Why the last run that failed did.
std::string ReasonOf(Transaction& transaction, const Job& job) {
    if (!job.refusal.empty()) return job.refusal;
    const auto failure = history::LastFailure(transaction, job.id);
    if (!failure) return "";
    return failure->event + (failure->detail.empty() ? "" : ": " + TextOfHtml(failure->detail));
}

problems::Problem NoticeOf(Transaction& transaction, const Job& job, const Escalation& escalation,
                           const std::string& now) {
    problems::Problem notice{.level = escalation.level,
                             .time = now,
                             .user = job.user_name,
                             .about = job.folder,
                             .tell_again = true};
    if (escalation.tell == Escalation::Tell::kEnding) {
        notice.name = "certificate_ending";
        notice.parameters = {{"name", job.certname},
                             {"days", str::Str(escalation.days)},
                             {"expires", job.expires},
                             {"reason", ReasonOf(transaction, job)}};
    } else if (escalation.tell == Escalation::Tell::kEnded) {
        notice.name = "certificate_ended";
        notice.parameters = {
            {"name", job.certname}, {"expires", job.expires}, {"reason", ReasonOf(transaction, job)}};
    } else {
        notice.name = "certificate_missing";
        notice.parameters = {{"name", job.certname}, {"reason", ReasonOf(transaction, job)}};
    }
    return notice;
}

void LookAt(Transaction& transaction, Job job, const vek_date::DateTime& now) {
    const Escalation escalation = EscalationOf(job, now);
    job.notice_step = escalation.step;
    job.notice_due = escalation.look;
    jobs::SetNotice(transaction, job);
    if (escalation.tell == Escalation::Tell::kNothing) return;
    problems::Problem notice = NoticeOf(transaction, job, escalation, now.AsDateTime());
    for (const std::string& owner : std::set<std::string>{"root", job.user_name, job.res_name}) {
        notice.owner = owner;
        if (!owner.empty()) problems::Raise(transaction, notice);
    }
}

}  // namespace

void WatchCertificates(Store& store, const vek_date::DateTime& now) {
    Transaction transaction(store);
    for (const Job& job : jobs::NoticeDue(transaction, now.AsDateTime(), kLookedAtOnce))
        LookAt(transaction, job, now);
    transaction.Commit();
}

}  // namespace zelvek::notices
