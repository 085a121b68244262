#include "flow/authorization.h"

#include <cstdint>

#include "acme/authority.h"
#include "acme/retry_after.h"
#include "acme/signed.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "challenges/publication.h"
#include "encoding/json_values.h"
#include "vek/proc.h"
#include "vek/str.h"

namespace {

constexpr int kPollingPasses = 60;
constexpr std::uint32_t kMillisecondsPerSecond = 1000;

/// Sleeps as the response asks. The product is a signed 32-bit number widened with its sign: a negative
/// delay, or one above 2147483 s, wraps. It is computed unsigned, where wrapping is defined.
void SleepAsAsked(const AcmeResponse& response) {
    const int seconds = RetryAfter(response);
    const auto milliseconds =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds) * kMillisecondsPerSecond);
    vek_proc::Sleep(static_cast<std::uint64_t>(static_cast<std::int64_t>(milliseconds)));
}

/// Fetches one authorization and appends it to `pending` unless it is valid already. False when the request
/// failed.
bool FetchAuthorization(QueryParams& params, const std::string& url, Json::Value& pending) {
    Trace("autorization url '%s'", url);
    ambrin_data.WriteLog("processing", "authorization_try", "");
    params.url = url;
    params.error_name = "authorization_fail";
    const AcmeResponse authorization = AcmePost(params, true);
    if (IsFailed(authorization)) return false;
    ambrin_data.WriteLog("processing", "authorization_success", "");
    if (MemberOf(authorization.json, "status") == Json::Value("valid"))
        Trace("Challenge already complete");
    else
        pending.append(authorization.json);
    return true;
}

/// A challenge whose passes ran out counts as answered: the order shows at finalization what it was worth.
bool AnswerAll(const std::list<ChallengeData>& challenges, QueryParams& params) {
    for (const ChallengeData& challenge : challenges) {
        params.payload.clear();  // {} where the run placed an order; null stays null
        if (kAuthority.style.answers_with_object) params.payload = Json::Value(Json::objectValue);
        params.url = challenge.url;
        if (IsFailed(WaitToResolve(params, "challenge"))) return false;
    }
    return true;
}

}  // namespace

bool Autorization(QueryParams& params, const std::string& authorizations) {
    Trace("Ambrin begin autorizations");
    Json::Value pending(Json::arrayValue);
    for (const std::string& url : str::Split(authorizations, " "))
        if (!FetchAuthorization(params, url, pending)) return false;
    ambrin_data.challenges = WriteCompact(pending);
    return true;
}

AcmeResponse WaitToResolve(QueryParams& params, const std::string& prefix, const std::string& poll_url) {
    Trace("wait for '%s' resolve", params.url);
    params.error_name = str::Append(prefix, "fail", "_");
    AcmeResponse response = AcmePost(params, false);
    for (int pass = 0; pass < kPollingPasses; ++pass) {
        if (IsFailed(response)) return response;
        const std::string status = TextOf(MemberOf(response.json, "status"));
        if (status == "valid") {
            ambrin_data.WriteLog("processing", str::Append(prefix, "success", "_"), "");
            return response;
        }
        if (status != "pending" && status != "processing") break;
        SleepAsAsked(response);
        if (!poll_url.empty()) params.url = poll_url;
        response = AcmePost(params, true);
    }
    // the answer to the last poll is deliberately not looked at
    ambrin_data.WriteLog("failed", str::Append(prefix, "req_attempt", "_"), "");
    return response;
}

bool ProcessChallenges(std::list<ChallengeData>& challenges, QueryParams& params,
                       std::map<std::string, std::string>& challenge_params) {
    Trace("Ambrin start challenges");
    const bool answered = AnswerAll(challenges, params);
    Trace("Ambrin challenge complete");
    CleenUpChallenges(challenge_params, challenges);
    return answered;
}
