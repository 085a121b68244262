#include "zelvek/notices/escalation.h"

#include <array>
#include <optional>
#include <vector>

#include "vek/err.h"

namespace zelvek::notices {

namespace {

using vek_date::DateTime;
using Tell = Escalation::Tell;

struct Step {
    int days;
    const char* level;
};

constexpr std::array kSteps{Step{14, "notice"}, Step{7, "warning"}, Step{3, "error"}, Step{1, "critical"}};
constexpr int kHour = 3600;  // seconds
constexpr int kWeek = 7;     // days
constexpr int kKeepsFailing = 3;
constexpr int kEnded = -1;  // as a step

/// Nothing for what is no date and time.
std::optional<DateTime> Read(const std::string& text) {
    try {
        return DateTime(text);
    } catch (const vek_err::Error&) {
        return std::nullopt;
    }
}

DateTime Before(const DateTime& end, int days) { return DateTime(end).AddDays(-days); }

/// The steps of a certificate, and whether a run has to fail before the first.
struct Course {
    std::vector<Step> steps;
    bool short_life;
};

Course CourseOf(const DateTime& end, const DateTime& renewal) {
    Course course{{}, Before(end, kSteps.front().days) < renewal};
    for (const Step& step : kSteps) {
        if (Before(end, step.days) >= renewal) course.steps.push_back(step);
    }
    return course;
}

Escalation OfInstalled(const Job& job, const DateTime& end, const DateTime& renewal, const DateTime& now) {
    const Course course = CourseOf(end, renewal);
    const bool counts = !course.short_life || job.failed || job.failures > 0;
    Escalation result{Tell::kNothing, 0, "", job.notice_step, ""};
    for (const Step& step : course.steps) {
        const DateTime moment = Before(end, step.days);
        if (moment > now) {
            if (result.look.empty()) result.look = moment.AsDateTime();
            break;
        }
        if (job.notice_step != 0 && step.days >= job.notice_step) continue;
        if (counts) result = {Tell::kEnding, step.days, step.level, step.days, ""};
        // A run may fail at any time.
        if (!counts) result.look = DateTime(now).AddSeconds(kHour).AsDateTime();
    }
    if (result.look.empty()) result.look = end.AsDateTime();
    return result;
}

Escalation OfEnded(const Job& job, const DateTime& now) {
    const auto again = Read(job.notice_due);
    if (job.notice_step == kEnded && again && *again > now)
        return {Tell::kNothing, 0, "", kEnded, job.notice_due};
    return {Tell::kEnded, 0, "critical", kEnded, DateTime(now).AddDays(kWeek).AsDateTime()};
}

Escalation OfMissing(const Job& job, const DateTime& now) {
    if (!job.failed && job.failures < kKeepsFailing) return {};
    return {Tell::kMissing, 0, "error", 1, DateTime(now).AddDays(kWeek).AsDateTime()};
}

}  // namespace

Escalation EscalationOf(const Job& job, const DateTime& now) {
    if (job.expires.empty()) return job.verified ? Escalation{} : OfMissing(job, now);
    const auto end = Read(job.expires);
    const auto renewal = Read(job.renew);
    if (!end || !renewal) return {};
    if (now < *renewal) return {Tell::kNothing, 0, "", job.notice_step, renewal->AsDateTime()};
    return *end <= now ? OfEnded(job, now) : OfInstalled(job, *end, *renewal, now);
}

}  // namespace zelvek::notices
