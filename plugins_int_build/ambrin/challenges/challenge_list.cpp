#include "challenges/challenge_list.h"

#include "acme/response.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/account_key.h"
#include "encoding/encoding.h"
#include "encoding/json_values.h"

namespace {

ChallengeData MakeChallenge(const Json::Value& challenge, const std::string& domain,
                            const std::string& check_type, const std::string& thumbprint) {
    ChallengeData data;
    data.token = TextOf(MemberOf(challenge, "token"));
    data.url = TextOf(MemberOf(challenge, "url"));
    data.domain = domain;
    data.key_authz = GetKeyAuthz(data.token, thumbprint);
    data.content = check_type == "dns" ? GetUrlEncodedSha256(data.key_authz) : data.key_authz;
    return data;
}

bool IsSelected(const Json::Value& challenge, const std::string& check_type) {
    return TextOf(MemberOf(challenge, "type")).find(check_type) != std::string::npos;
}

}  // namespace

bool PrepareChallengesList(std::map<std::string, std::string>& params, std::list<ChallengeData>& challenges) {
    if (ambrin_data.modulus.empty() || ambrin_data.challenges.empty()) return false;
    Json::Reader reader;
    Json::Value header;
    if (!TryParseACMEResponse(reader, header, ambrin_data.modulus)) return false;
    const std::string thumbprint = GetThumbprint(WriteCompact(MemberOf(header, "jwk")));
    Json::Value authorizations;
    if (!TryParseACMEResponse(reader, authorizations, ambrin_data.challenges)) return false;
    std::list<std::string> texts;
    ParseChallengeJson(authorizations, texts);
    GetChallengesList(texts, challenges, ambrin_data.check_type, thumbprint);
    params["user"] = ambrin_data.user_name;
    params["thumbprint"] = thumbprint;
    params["type"] = ambrin_data.check_type;
    params["domain"] = ambrin_data.domain;
    return true;
}

void GetChallengesList(const std::list<std::string>& authorizations, std::list<ChallengeData>& challenges,
                       const std::string& check_type, const std::string& thumbprint) {
    for (const std::string& text : authorizations) {
        Trace("list val '%s'", text);
        const Json::Value authorization = ParseWhole(text);
        const std::string domain = TextOf(MemberOf(MemberOf(authorization, "identifier"), "value"));
        for (const Json::Value& challenge : MemberOf(authorization, "challenges")) {
            if (!IsSelected(challenge, check_type)) continue;
            const ChallengeData data = MakeChallenge(challenge, domain, check_type, thumbprint);
            Trace("domain '%s'\ntoken %s\nurl %s", data.domain, data.token, data.url);
            challenges.push_back(data);
        }
    }
}

void ParseChallengeJson(const Json::Value& authorizations, std::list<std::string>& out) {
    for (const Json::Value& authorization : authorizations)
        if (HasMember(authorization, "challenges")) out.push_back(authorization.toStyledString());
}
