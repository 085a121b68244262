#include "challenges/publication.h"

#include "ambrin_data.h"
#include "ambrin_log.h"
#include "vek/err.h"
#include "vek/str.h"
#include "vek/xml.h"

namespace {

void PublishAnswerFile(std::map<std::string, std::string>& params) {
    ambrin_data.client.Query("func=ambrin_challenge&action=?&user_name=?&file_name=?&content=?",
                             params["action"], params["user"], params["token"], params["content"]);
}

/// The panel's request for a TXT record. For an unknown action it names no function, and the panel refuses
/// it.
std::map<std::string, std::string> RecordRequest(std::map<std::string, std::string>& params) {
    std::map<std::string, std::string> request{
        {"plid", params["domain"]}, {"value", params["content"]}, {"su", params["user"]}};
    const std::string action = params["action"];
    if (action == "create") {
        Trace("Ambrin creating challenge");
        request["func"] = "domain.record.edit";
        request["name"] = params["record"];
    } else if (action == "delete") {
        Trace("Ambrin deleteing challenge");
        request["func"] = "domain.record.delete";
        request["elid"] = params["elid"];
    }
    return request;
}

void PublishRecord(std::map<std::string, std::string>& params) {
    // every record of a job goes to the zone of its main domain; the panel sorts out names that lie elsewhere
    params["domain"] = FindDomainName(params["domain"], params["user"]);
    const auto request = RecordRequest(params);
    try {
        ambrin_data.client.Query("sok=ok&rtype=txt", request);
    } catch (const vek_err::Error& error) {
        if (error.type() != "exists") throw;
        LogFailure("TXT record already exist");
    }
}

}  // namespace

void Challenge(std::map<std::string, std::string> params) {
    if (params["type"] == "http")
        PublishAnswerFile(params);
    else
        PublishRecord(params);
}

std::string FindDomainName(const std::string& name, const std::string& user) {
    const vek_client::Result domains = ambrin_data.client.Query("func=domain&su=?", user);
    std::string candidate = name;
    while (!candidate.empty()) {
        if (domains.xml().GetNode("/doc/elem[name=" + vek_xml::EscapePropValue(candidate) + "]"))
            return candidate;
        str::GetWord(candidate, '.');
    }
    return candidate;
}

std::string TxtRecordName(const ChallengeData& challenge) {
    return str::Append("_acme-challenge", challenge.domain, ".") + ".";
}

void CreateAllChallenges(const std::list<ChallengeData>& challenges,
                         std::map<std::string, std::string>& params) {
    params["action"] = "create";
    for (const ChallengeData& challenge : challenges) {
        params["content"] = challenge.content;
        params["token"] = challenge.token;
        params["record"] = TxtRecordName(challenge);
        Challenge(params);
    }
}

void DeleteAllChallenges(const std::list<ChallengeData>& challenges,
                         std::map<std::string, std::string>& params) {
    params["action"] = "delete";
    for (const ChallengeData& challenge : challenges) {
        params["elid"] =
            TxtRecordName(challenge) + " TXT  " + challenge.content;  // two blanks: the panel's key form
        params["content"] = challenge.content;
        params["token"] = challenge.token;
        Challenge(params);
    }
}

void CleenUpChallenges(std::map<std::string, std::string> params, std::list<ChallengeData>& challenges) {
    ambrin_data.challenges.clear();
    ambrin_data.attempt_count = 0;
    DeleteAllChallenges(challenges, params);
}
