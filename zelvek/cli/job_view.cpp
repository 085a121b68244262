#include "zelvek/cli/job_view.h"

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/html_text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/table.h"
#include "zelvek/records/next_step.h"

namespace zelvek::cli {

vek_client::Result AskForJob(int id, const std::string& user) {
    std::map<std::string, std::string> parameters{{"elid", str::Str(id)}};
    if (!user.empty()) parameters["user_name"] = user;
    return Ask("zelvek.job.show", parameters);
}

std::string JobTable(const vek_client::Result& shown) {
    const auto job = shown.xml().GetNode("/doc");
    std::vector<std::vector<std::string>> rows{
        {"certificate", job.Value("certname")},
        {"names", job.Value("aliases")},
        {"user", job.Value("user_name")},
        {"check", job.Value("check_type")},
        {"state", StateOf(job)},
        {"started", records::WithZone(job.Value("time_started"))},
        {"attempts", job.Value("attempt_count")},
        {"next step", records::NextStep(job, vek_date::DateTime().AsDateTime())},
        {"expires", records::WithZone(job.Value("expires"))},
        {"account", job.Value("kid")},
        {"order", job.Value("finalize_check")}};
    if (job.Value("authority") != authorities::kFirst) rows.push_back({"authority", job.Value("authority")});
    if (!job.Value("refusal").empty()) rows.push_back({"refused", TextOfHtml(job.Value("refusal"))});
    for (const auto& reload : shown.xml().GetNodes("/doc/reload")) {
        rows.push_back({"web server", "has an older certificate since " + reload.Value("since") +
                                          " UTC, tried again at " + reload.Value("next") +
                                          " UTC: " + TextOfHtml(reload.Value("reason"))});
    }
    return OutputTable({"JOB", job.Value("id")}, rows);
}

std::string JobSentence(const vek_client::Result& shown) {
    const std::string sentence = shown.value("sentence");
    return sentence.empty() ? "" : OutputText(sentence);
}

std::string JobFindings(const vek_client::Result& shown) {
    std::string lines;
    for (const auto& finding : shown.xml().GetNodes("/doc/finding"))
        lines += OutputText(finding.Value("text"));
    return lines;
}

std::size_t EventCount(const vek_client::Result& shown) { return shown.xml().GetNodes("/doc/event").size(); }

std::string EventTable(const vek_client::Result& shown, std::size_t first) {
    std::vector<std::vector<std::string>> rows;
    const auto nodes = shown.xml().GetNodes("/doc/event");
    for (std::size_t i = first; i < nodes.size(); ++i) {
        rows.push_back({nodes[i].Value("time"), nodes[i].Value("state"), nodes[i].Value("event"),
                        TextOfHtml(nodes[i].Value("detail"))});
    }
    return rows.empty() ? "" : OutputTable({"TIME (UTC)", "STATE", "EVENT", "DETAIL"}, rows);
}

}  // namespace zelvek::cli
