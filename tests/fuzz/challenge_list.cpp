// Any JSON text as the job's authorizations: a record for every selected challenge, none else, no exception.
#include "challenges/challenge_list.h"

#include <vector>

#include "ambrin_data.h"
#include "double/vek_double.h"
#include "encoding/json_values.h"
#include "support/plain.h"
#include "support/target.h"

namespace {

const std::string kThumbprint = "q2Zp-AJ4aPLB_kmSG0H8BlgBQfrPiFQZHgEZMVRe0RQ";
const std::string kHeader = R"({"alg":"RS256","jwk":{"e":"AQAB","kty":"RSA","n":"0vx7"}})";
const std::string kDigestTool = "openssl dgst -sha256 -binary";

bool Equal(const ChallengeData& a, const ChallengeData& b) {
    return a.token == b.token && a.url == b.url && a.domain == b.domain && a.key_authz == b.key_authz &&
           a.content == b.content;
}

bool Equal(const std::list<ChallengeData>& a, const std::list<ChallengeData>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const ChallengeData& x, const ChallengeData& y) { return Equal(x, y); });
}

std::string Text(const Json::Value& object, const std::string& name) {
    if (!object.isObject() || !object.isMember(name)) return "";
    const Json::Value& value = object[name];
    return value.isArray() || value.isObject() ? "" : value.asString();
}

/// The records of one authorization, read from the value itself instead of from its text.
void Expect(const Json::Value& authorization, const std::string& check_type,
            std::list<ChallengeData>& expected) {
    if (!authorization.isObject() || !authorization.isMember("challenges")) return;
    const Json::Value identifier = authorization.get("identifier", Json::Value());
    for (const Json::Value& challenge : authorization["challenges"]) {
        if (Text(challenge, "type").find(check_type) == std::string::npos) continue;
        ChallengeData data{Text(challenge, "token"), Text(challenge, "url"), Text(identifier, "value"), "",
                           ""};
        data.key_authz = data.token.empty() ? kThumbprint : data.token + "." + kThumbprint;
        data.content = check_type == "dns" ? plain::Base64Url(plain::Digest(data.key_authz)) : data.key_authz;
        expected.push_back(data);
    }
}

void HoldRecords(const std::list<ChallengeData>& challenges, const std::string& check_type) {
    for (const ChallengeData& data : challenges) {
        fuzz::Hold(data.key_authz.ends_with(kThumbprint), "a key authorization ends with the thumbprint");
        if (check_type != "dns") {
            fuzz::HoldEqual(data.content, data.key_authz, "the key authorization itself is published");
            continue;
        }
        fuzz::Hold(data.content.size() == 43, "a digest is published in 43 characters");
        fuzz::Hold(data.content.find_first_of("+/=") == std::string::npos,
                   "what is published needs no quoting");
    }
}

/// The same list from the job's record, whose account has a thumbprint of its own.
void HoldPrepared(const std::string& json, const std::string& check_type, std::size_t count) {
    ambrin_data.log.clear();
    ambrin_data.modulus = kHeader;
    ambrin_data.challenges = json;
    ambrin_data.check_type = check_type;
    ambrin_data.user_name = "alice";
    ambrin_data.domain = "example.org";
    std::map<std::string, std::string> params;
    std::list<ChallengeData> challenges;
    if (!PrepareChallengesList(params, challenges)) {
        fuzz::Hold(params.empty() && challenges.empty(),
                   "a list that cannot be made leaves everything alone");
        return;
    }
    const std::string thumbprint = plain::Base64Url(plain::Digest(R"({"e":"AQAB","kty":"RSA","n":"0vx7"})"));
    const std::map<std::string, std::string> expected{
        {"user", "alice"}, {"thumbprint", thumbprint}, {"type", check_type}, {"domain", "example.org"}};
    fuzz::Hold(params == expected, "the publication's parameters are the job's");
    if (json.find('\0') == std::string::npos)
        fuzz::Hold(challenges.size() == count, "the record's texts give as many");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    std::string json = TakeRest(input);
    const std::string check_type = TakeLine(json);
    vek_double::World world;
    world.SetLogLevel(0);
    world.AlwaysChild(kDigestTool, [](const std::string& data) {
        return vek_double::ChildAnswer{plain::Digest(data), 0};
    });

    const Json::Value authorizations = ParseAny(json);
    std::list<std::string> texts{"[no authorization"};
    ParseChallengeJson(authorizations, texts);
    std::list<ChallengeData> challenges{{"earlier", "", "", "", ""}};
    GetChallengesList(texts, challenges, check_type, kThumbprint);
    Hold(challenges.front().token == "earlier", "records are appended");
    challenges.pop_front();

    std::list<ChallengeData> expected;
    // written and read once, because printing replaces what is no UTF-8
    for (const Json::Value& authorization : ParseAny(WriteCompact(authorizations)))
        Expect(authorization, check_type, expected);
    Hold(Equal(challenges, expected),
         "there is a record for every selected challenge of every authorization, in order");
    HoldRecords(challenges, check_type);
    const std::size_t digests = check_type == "dns" ? challenges.size() : 0;
    Hold(world.Lines({"child"}).size() == digests, "one digest is made per record that needs one");
    HoldPrepared(json, check_type, challenges.size());
}
