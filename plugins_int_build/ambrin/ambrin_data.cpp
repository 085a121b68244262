#include "ambrin_data.h"

#include <map>

#include "vek/date.h"
#include "vek/str.h"

AmbrinData ambrin_data;

namespace {

bool ReadFlag(const std::string& text) { return text == "on"; }

std::string FlagText(bool flag) { return flag ? "on" : "off"; }

}  // namespace

AmbrinData::~AmbrinData() { Post(); }

void AmbrinData::Init(int id) {
    elid = id;
    const vek_client::Result job = client.Query("func=ambrin.data.edit&elid=?&out=xml", str::Str(elid));
    certname = job.value("certname");
    kid = job.value("kid");
    aliases = job.value("aliases");
    finalize_check = job.value("finalize_check");
    challenges = job.value("challenges");
    check_type = job.value("check_type");
    domain = job.value("domain");
    finalize = job.value("finalize");
    modulus = job.value("modulus");
    acmekey = job.value("acmekey");
    attempt_count = str::Int(job.value("attempt_count"));
    verified = ReadFlag(job.value("verified"));
    csr_internal_request = job.value("csr_internal_request");
    time_started = job.value("time_started");
    failed = ReadFlag(job.value("failed"));
    force_update = ReadFlag(job.value("force_update"));
    next_attempt = job.value("next_attempt");
    account_check_count = str::Int(job.value("account_check_count"));
    user_name = job.value("user_name");
    res_name = job.value("res_name");
    skip_account_check = ReadFlag(job.value("skip_account_check"));
    default_kid = job.value("default_kid");
    default_pem = job.value("default_pem");
    max_account_check_attempts = str::Int(job.value("max_account_check_attempts"));
}

void AmbrinData::WriteLog(const std::string& state, const std::string& event, const std::string& detail) {
    const std::string entry = vek_date::DateTime().AsDateTime() + "," + state + "," + event + "," + detail;
    str::inpl::Append(log, entry, ";");
}

void AmbrinData::Post() {
    const std::map<std::string, std::string> record{
        {"elid", str::Str(elid)},
        {"kid", kid},
        {"finalize_check", finalize_check},
        {"challenges", challenges},
        {"finalize", finalize},
        {"modulus", modulus},
        {"acmekey", acmekey},
        {"next_attempt", next_attempt},
        {"log", log},
        {"attempt_count", str::Str(attempt_count)},
        {"account_check_count", str::Str(account_check_count)},
        {"verified", FlagText(verified)},
        {"failed", FlagText(failed)},
        {"force_update", FlagText(force_update)},
        {"update_default_account", FlagText(update_default_account)},
        {"processing", "off"},
    };
    client.Query("func=ambrin.data.edit&sok=ok", record);
}
