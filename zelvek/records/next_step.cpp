#include "zelvek/records/next_step.h"

#include "vek/str.h"
#include "zelvek/records/job_record.h"

namespace zelvek::records {

namespace {

constexpr std::size_t kDay = sizeof("YYYY-MM-DD") - 1;
constexpr std::size_t kMinute = sizeof("YYYY-MM-DD HH:MM") - 1;
constexpr std::size_t kDateTime = sizeof("YYYY-MM-DD HH:MM:SS") - 1;

/// "12:30" of the day that it is now, "2031-02-03 12:30" of another.
std::string ShortTime(const std::string& time, const std::string& now) {
    if (time.size() != kDateTime || now.size() != kDateTime) return time;
    const bool today = time.compare(0, kDay, now, 0, kDay) == 0;
    const std::size_t begin = today ? kDay + 1 : 0;
    return time.substr(begin, kMinute - begin) + " UTC";
}

std::string Failures(const vek_xml::Node& job) {
    const int count = str::Int(job.Value("failures"));
    if (count == 0) return "";
    return " (" + str::Str(count) + (count == 1 ? " failure)" : " failures)");
}

}  // namespace

std::string WithZone(const std::string& time) { return time.empty() ? "" : time + " UTC"; }

std::string DayOf(const std::string& time) { return time.size() == kDateTime ? time.substr(0, kDay) : time; }

std::string NextStep(const vek_xml::Node& job, const std::string& now) {
    const std::string state = StateOf(job);
    const std::string due = job.Value("due");
    const std::string renew = job.Value("renew");
    if (state == "paused") return "none until it is resumed";
    if (state == "running") return "a run is under way";
    if (state == "verified" && renew.empty()) return "";
    if (state == "verified") return renew <= now ? "renews now" : "renews " + DayOf(renew);
    if (state == "failed")
        return (due <= now ? "begins anew now" : "begins anew " + ShortTime(due, now)) + Failures(job);
    if (due <= now) return "runs now" + Failures(job);
    return (Failures(job).empty() ? "runs " : "next try ") + ShortTime(due, now) + Failures(job);
}

}  // namespace zelvek::records
