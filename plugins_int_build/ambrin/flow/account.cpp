#include "flow/account.h"

#include <limits>

#include "acme/authority.h"
#include "acme/signed.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/account_key.h"
#include "encoding/json_values.h"
#include "vek/proc.h"

namespace {

constexpr int kCreated = 201;
constexpr int kKnownAlready = 200;

/// A fresh key in the record, which signs with the key itself until the account has an URL.
void TakeNewKey() {
    ambrin_data.kid.clear();
    ambrin_data.acmekey = GenerateAcmeKey();
    ambrin_data.modulus = GetModulusHeader(ambrin_data.acmekey);
}

/// Puts this account into the record, the key header last. A key that cannot be read stays there with its key
/// id, so that the panel shows which account failed. A signal says nothing about the key: it puts the old
/// account back, because an account URL beside another key's header would never serve.
void TakeAccount(const std::string& kid, const std::string& pem) {
    const std::string old_kid = ambrin_data.kid;
    const std::string old_pem = ambrin_data.acmekey;
    ambrin_data.kid = kid;
    ambrin_data.acmekey = pem;
    try {
        ambrin_data.modulus = GetModulusHeader(pem);
    } catch (const vek_proc::Interrupted&) {
        ambrin_data.kid = old_kid;
        ambrin_data.acmekey = old_pem;
        throw;
    }
}

}  // namespace

bool CheckAccount(QueryParams& params) {
    // asked first on purpose: skipping the check never saves a job that has no account
    if (ambrin_data.kid.empty()) return false;
    if (ambrin_data.skip_account_check) return true;
    params.url = ambrin_data.kid;
    const AcmeResponse account = AcmePost(params, kAuthority.style.fetches_account);
    return !IsFailed(account) && MemberOf(account.json, "status") == Json::Value("valid");
}

bool CheckDefaultAccount(QueryParams& params) {
    const std::string kid = ambrin_data.default_kid;
    const std::string pem = ambrin_data.default_pem;
    if (pem.empty() || kid == ambrin_data.kid) return false;
    TakeAccount(kid, pem);
    return CheckAccount(params);
}

bool NeedRetryAccountCheck() {
    if (ambrin_data.kid.empty() || ambrin_data.acmekey.empty()) return false;
    if (ambrin_data.account_check_count < std::numeric_limits<std::int32_t>::max())
        ++ambrin_data.account_check_count;
    return ambrin_data.account_check_count <= ambrin_data.max_account_check_attempts;
}

bool Registration(QueryParams& params) {
    Trace("Ambrin registration");
    Json::Value terms;
    terms["termsOfServiceAgreed"] = true;
    ambrin_data.WriteLog("processing", "registration_try", "");
    params.url = "newAccount";
    params.payload = terms;
    TakeNewKey();
    params.error_name = "registration_fail";
    const AcmeResponse account = AcmePost(params, false);
    // the status alone decides: RFC 8555 section 7.3 promises nothing about the body that is needed here
    if (account.code != kCreated && account.code != kKnownAlready) return false;
    const bool created = account.code == kCreated;
    ambrin_data.WriteLog("processing", created ? "registration_success" : "registration_exist", "");
    const std::string kid = HeaderOf(account, "location");
    Trace("registration kid '%s'", kid);
    ambrin_data.kid = kid;
    ambrin_data.update_default_account = true;
    return true;
}
