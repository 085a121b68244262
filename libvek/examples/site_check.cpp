// A whole plug-in: looks whether the site of a certificate job answers, and writes what it saw into the job's
// history.
//
//   site-check ID [URL]     asks http://DOMAIN/ of job ID's main domain, or the URL
//
// Exit status: 0 the site answers, 1 it does not, or the arguments are wrong. The launcher adds 2 for an
// error that nobody has caught and 128 + the signal's number for a run that was ended.
#include <chrono>
#include <map>
#include <sstream>
#include <string>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/launcher.h"
#include "vek/log.h"
#include "vek/proc.h"
#include "vek/rpc.h"
#include "vek/str.h"

// What the launcher answers to "--help" and "--version".
const vek_launcher::About vek_launcher::about{
    .version = "1.0.0",
    .arguments = "ID [URL]",
    .purpose = "Looks whether the site of this certificate job answers, and notes it in the job's history."};

namespace {

constexpr int kAnswers = 0;
constexpr int kFailed = 1;
constexpr int kErrorStatus = 400;  // and above: the server refuses
constexpr std::chrono::seconds kPatience{30};
constexpr std::size_t kMostBytes = 1 << 20;  // a page's size is the other side's choice: set a limit

const vek_log::Module logger("site-check", "run");

// The job's record. It is read at the beginning and written back at the end, whatever happens in between: a
// destructor runs after an error and an interruption, too. Queries to the service work even then.
class Record {
public:
    explicit Record(const std::string& id) : id_(id) {
        const vek_client::Result job = service_.Query("func=ambrin.data.edit&elid=?&out=xml", id_);
        domain_ = job.value("domain");
    }

    // Where this cannot be done the process ends by SIGABRT, and nobody takes the run for a finished one.
    ~Record() {
        service_.Query("func=ambrin.data.edit&sok=ok", {{"elid", id_}, {"processing", "off"}, {"log", log_}});
    }

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    const std::string& domain() const { return domain_; }

    // A line of the job's history: time, state, event, detail.
    void Note(const std::string& state, const std::string& detail) {
        const std::string now = vek_date::DateTime().AsDateTime();
        str::inpl::Append(log_, now + "," + state + ",site_check," + detail, ";");
    }

private:
    vek_client::Local service_{"zelvek", "site-check"};  // socket and caller
    std::string id_;
    std::string domain_;
    std::string log_;
};

// A child process: /bin/sh runs the command, fed with `text`. What comes from outside goes to its input, or
// into the command by vek_proc::Escape.
std::string Digest(const std::string& text) {
    vek_proc::Execute tool("sha256sum", vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession);
    tool.LimitTime(kPatience);
    tool.In() << text;
    std::string output = tool.Str();
    return tool.Result() == 0 ? str::GetWord(output, ' ') : "no digest";
}

int Check(Record& record, const std::string& url) {
    vek_rpc::HttpQuery http;
    http.AcceptAnyResponse();
    http.Limit(kPatience, kMostBytes);
    std::ostringstream page;
    http.Get(url, page);
    const std::string seen = std::to_string(http.Status()) + " " + Digest(page.str());
    logger.Write(vek_log::kTrace, "%s: %s", url, seen);
    const bool answers = http.Status() < kErrorStatus;
    record.Note(answers ? "success" : "failed", seen);
    return answers ? kAnswers : kFailed;
}

// An exchange that fails is an outcome like any other. An interruption is no std::exception: it passes
// through here, up to the launcher, and the record is written back on its way.
int CheckSite(Record& record, const std::string& url) try {
    return Check(record, url);
} catch (const std::exception& error) {
    logger.Write(vek_log::kFailure, "%s: %s", url, error.what());
    record.Note("failed", error.what());
    return kFailed;
}

}  // namespace

int zelmain(int argc, char** argv) {
    vek_log::Init("site-check", vek_log::kTrace);  // $VEK_LOG_DIR/site-check.log
    const int id = argc > 1 ? str::Int(argv[1]) : 0;
    if (id <= 0) {
        logger.Write(vek_log::kUse, "the first argument is no job's number");
        return kFailed;
    }
    Record record(str::Str(id));
    return CheckSite(record, argc > 2 ? argv[2] : "http://" + record.domain() + "/");
}
