#include "zelvek/cli/status_check.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <string>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"

namespace zelvek::cli {

namespace {

/// What is found, in the words of monitoring plug-ins; a kind's number is the exit status.
struct Verdict {
    enum Kind : int { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };
    Kind kind = kOk;
    std::string text;
    std::string numbers = {};  // "failed=0 ...", for who draws them
};

constexpr std::array kWords{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
constexpr std::array kCountedStates{"failed", "failing", "waiting", "running", "verified", "paused"};

std::string Named(const vek_xml::Node& job) {
    return job.Value("certname") + " (job " + job.Value("id") + ", user " + job.Value("user_name") + ")";
}

std::string Others(int all) { return all > 1 ? ", and " + std::to_string(all - 1) + " more" : ""; }

Verdict OfEnds(const vek_client::Result& status, int late) {
    const auto first = status.xml().GetNode("/doc/late");
    const std::string end = first.Value("expires");
    const bool over = end <= status.value("now");
    return {Verdict::kCritical, Named(first) + (over ? " ended at " : " is not renewed and ends at ") + end +
                                    " UTC" + Others(late)};
}

Verdict OfFailures(const vek_client::Result& status, int failures) {
    const auto first = status.xml().GetNode("/doc/failure");
    return {Verdict::kWarning, Named(first) + " fails: " + LastError(first) + Others(failures)};
}

Verdict OfStatus(const vek_client::Result& status) {
    const auto counts = status.xml().GetNode("/doc/jobs");
    const int late = str::Int(status.value("late_count"));
    const int failures = str::Int(counts.Value("failed")) + str::Int(counts.Value("failing"));
    Verdict verdict{Verdict::kOk, "no job fails, no certificate ends soon"};
    if (late > 0) {
        verdict = OfEnds(status, late);
    } else if (failures > 0) {
        verdict = OfFailures(status, failures);
    }
    for (const char* state : kCountedStates)
        str::inpl::Append(verdict.numbers, std::string(state) + "=" + counts.Value(state), " ");
    verdict.numbers += " late=" + status.value("late_count");
    return verdict;
}

Verdict Look() try { return OfStatus(Ask("zelvek.status", {})); } catch (const Error& error) {
    return {error.code() == Code::kIo ? Verdict::kCritical : Verdict::kUnknown, error.what()};
}

/// One line; what stands after a bar is taken for numbers.
std::string LineOf(std::string text) {
    std::replace(text.begin(), text.end(), '|', '/');
    return WithoutControls(text, ' ');
}

}  // namespace

int CheckStatus(bool json) {
    const Verdict verdict = Look();
    if (json) {
        Json::Value value;
        value["state"] = str::Lower(kWords[verdict.kind]);
        value["message"] = verdict.text;
        PrintJson(value);
    } else {
        std::cout << "ZELVEK " << kWords[verdict.kind] << " - " << LineOf(verdict.text)
                  << (verdict.numbers.empty() ? "" : " | " + verdict.numbers) << "\n";
    }
    return verdict.kind;
}

}  // namespace zelvek::cli
