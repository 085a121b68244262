// The run driver: one run carries one certificate job as far as it can go now.

#include <limits>
#include <list>
#include <map>
#include <optional>
#include <string>

#include "acme/request.h"
#include "acme/response.h"
#include "acme/signed.h"
#include "acme/unsigned.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "challenges/challenge_list.h"
#include "challenges/dns_check.h"
#include "challenges/publication.h"
#include "csr/csr.h"
#include "flow/account.h"
#include "flow/authorization.h"
#include "flow/finalization.h"
#include "flow/order.h"
#include "problem.h"
#include "vek/date.h"
#include "vek/err.h"
#include "vek/launcher.h"
#include "vek/str.h"

namespace {

constexpr int kDone = 0;
constexpr int kError = 1;
constexpr int kDaysToFinish = 1;              // from the job's start, not from its last attempt
constexpr int kPauseSeconds = 1800;           // until records that are not visible yet are looked up again
const std::string kBlankLine = "\n\n";        // between certificate and chain
const std::string kPanelIdSeparator = "%#%";  // between owner and name in a certificate's panel id

/// What one run works with besides the job record.
struct Run {
    vek_date::DateTime now;  // the run's one current time, for the time-out and the pause
    QueryParams params;
    std::string csr;
    std::string key;
    std::string check_type;
    bool new_challenges = false;
    std::map<std::string, std::string> challenge_params;
    std::list<ChallengeData> challenges;
    std::string certificate;
    std::string chain;
};

/// The exit status of a step that ends the run; nothing when the run goes on.
using Ending = std::optional<int>;
constexpr std::nullopt_t kGoOn = std::nullopt;

Ending Fail(const char* text) {
    LogFailure(text);
    return kError;
}

bool IsTimedOut(const vek_date::DateTime& now) {
    vek_date::DateTime deadline(ambrin_data.time_started);
    deadline.AddDays(kDaysToFinish);
    return deadline <= now && !ambrin_data.verified;
}

/// Takes published records back and stops the job for good. Answer files are the panel's to remove.
int StopTimedOutJob() {
    std::map<std::string, std::string> challenge_params;
    std::list<ChallengeData> challenges;
    if (ambrin_data.check_type == "dns" && PrepareChallengesList(challenge_params, challenges))
        DeleteAllChallenges(challenges, challenge_params);
    StopWithProblem("");
    ambrin_data.WriteLog("failed", "timeout_error", "");
    return kDone;
}

void CountAttempt() {
    if (ambrin_data.attempt_count < std::numeric_limits<std::int32_t>::max()) ++ambrin_data.attempt_count;
}

Ending RequestCsr(Run& run) {
    GetCSR(run.csr, run.key);
    return kGoOn;
}

Ending FetchDirectory(Run& run) {
    if (IsFailed(GetDirectory(run.params))) return kError;
    run.check_type = ambrin_data.check_type;
    return kGoOn;
}

Ending FindAccount(Run& run) {
    if (!CheckAccount(run.params) && !CheckDefaultAccount(run.params)) {
        if (NeedRetryAccountCheck()) {
            LogFailure("Account check failed. Need retry");
            return kDone;
        }
        if (!Registration(run.params)) return Fail("Registration failed");
    }
    ambrin_data.account_check_count = 0;
    return kGoOn;
}

Ending PlaceOrder(Run& run) {
    const std::string authorizations = NewOrder(run.params);
    if (authorizations.empty()) return Fail("Authorisations is empty");
    Trace("autorizations '%s'", authorizations);
    if (!Autorization(run.params, authorizations)) return Fail("Failed to get challenges");
    Trace("all challenges '%s'", ambrin_data.challenges);
    run.new_challenges = true;
    return kGoOn;
}

/// A new order, unless an earlier run has left challenges to answer.
Ending GetChallenges(Run& run) {
    if (ambrin_data.attempt_count > 1 && !ambrin_data.challenges.empty()) {
        Trace("no need for new challenges");
        return kGoOn;
    }
    Trace("get challendes");
    if (const Ending ending = FindAccount(run)) return ending;
    return PlaceOrder(run);
}

Ending ListChallenges(Run& run) {
    if (!PrepareChallengesList(run.challenge_params, run.challenges))
        return Fail("Failed to prepare challenges list");
    return kGoOn;
}

/// Records published just now are never looked up in the same run; the next run does that.
Ending PublishChallenges(Run& run) {
    if (!run.new_challenges || run.challenges.empty()) return kGoOn;
    ambrin_data.WriteLog("processing", "challenge_start", "");
    CreateAllChallenges(run.challenges, run.challenge_params);
    ambrin_data.WriteLog("processing", "challenge_created", "");
    if (run.check_type == "dns") return kDone;
    return kGoOn;
}

/// Puts the job off for half an hour and tells everyone which records are missing and which name servers
/// should have them.
void PauseJob(const vek_date::DateTime& now, const std::string& missing) {
    const std::string next_attempt = vek_date::DateTime(now).AddSeconds(kPauseSeconds).AsDateTime();
    Trace("next attempt '%s'", next_attempt);
    ambrin_data.next_attempt = next_attempt;
    AmbrinProblem problem;
    problem.level = "message";
    problem.targets = JobTargets("ambrin_pause", "ambrin_pause");
    problem.parameters = {{"name", ambrin_data.certname},
                          {"date", ambrin_data.next_attempt},
                          {"ns", Dig(ambrin_data.domain, "NS")},
                          {"records", missing}};
    RegisterProblemAmbrin(problem);
}

Ending CheckRecords(Run& run) {
    if (run.check_type != "dns") return kGoOn;
    std::string missing;
    if (DigAllRecords(run.challenges, missing)) return kGoOn;
    PauseJob(run.now, missing);
    return kDone;
}

Ending AnswerChallenges(Run& run) {
    if (!ProcessChallenges(run.challenges, run.params, run.challenge_params))
        return Fail("Failed to process challenges");
    return kGoOn;
}

Ending FinalizeOrder(Run& run) {
    run.params.url = GetCertOrderUrl(run.params, GetEncodedDERCsr(run.csr));
    if (run.params.url.empty()) return Fail("Failed to get cert url");
    return kGoOn;
}

Ending DownloadCertificate(Run& run) {
    run.params.error_name = "cert_recive_failed";
    const AcmeResponse response = AcmePost(run.params, true);
    run.params.key = {};  // this was the last signature, and an installation may take minutes
    if (IsFailed(response)) return Fail("Failed to get cert");
    run.certificate = response.body;
    run.chain = str::RGetWord(run.certificate, kBlankLine);
    Trace("Ambrin cert is received");
    Trace("cert '%s'", run.certificate);
    Trace("chain '%s'", run.chain);
    ambrin_data.WriteLog("success", "cert_recived", "");
    return kGoOn;
}

void MarkVerified() {
    ambrin_data.verified = true;
    ambrin_data.failed = false;
    ambrin_data.force_update = false;
    ambrin_data.finalize.clear();
    ambrin_data.finalize_check.clear();
}

Ending InstallCertificate(Run& run) {
    const std::string panel_id = ambrin_data.user_name + kPanelIdSeparator + ambrin_data.certname;
    try {
        ambrin_data.client.Query("func=sslcert.hardreplace&cacrt=?&elid=?&user=?&crt=?&key=?&sok=ok",
                                 run.chain, panel_id, ambrin_data.user_name, run.certificate, run.key);
    } catch (const vek_err::Error& error) {
        StopWithProblem(error.what());
        ambrin_data.WriteLog("failed", "hardreplace_error", error.what());
        return kError;
    }
    MarkVerified();
    AmbrinProblem problem;
    problem.level = "message";
    problem.targets = JobTargets("ambrin_success", "ambrin_success");
    problem.parameters = {{"name", ambrin_data.certname}};
    RegisterProblemAmbrin(problem);
    return kDone;
}

int Issue(Run& run) {
    for (const auto step :
         {RequestCsr, FetchDirectory, GetChallenges, ListChallenges, PublishChallenges, CheckRecords,
          AnswerChallenges, FinalizeOrder, DownloadCertificate, InstallCertificate})
        if (const Ending ending = step(run)) return *ending;
    return kDone;
}

}  // namespace

int zelmain(int argc, char** argv) {
    vek_log::Init("ambrin", vek_log::kTrace);
    const int id = argc > 1 ? str::Int(argv[1]) : 0;
    if (id == 0) {
        ambrin_log.Write(vek_log::kUse, "Certificate ID is missed");
        return kError;
    }
    ambrin_data.Init(id);
    if (ambrin_data.verified) {
        LogFailure("'%s' cert already verified", ambrin_data.certname);
        return kDone;
    }
    Trace("start '%s' cert verification", ambrin_data.certname);
    Run run;
    if (IsTimedOut(run.now)) return StopTimedOutJob();
    CountAttempt();
    return Issue(run);
}
