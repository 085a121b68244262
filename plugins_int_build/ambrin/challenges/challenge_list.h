#pragma once

#include <json/json.h>

#include <list>
#include <map>
#include <string>

/// One challenge that this run answers (RFC 8555 section 8).
struct ChallengeData {
    std::string token;
    std::string url;        // where it is answered
    std::string domain;     // the authorization's identifier
    std::string key_authz;  // token "." thumbprint
    std::string content;    // what is published: the key authorization, or for dns-01 its base64url SHA-256
};

/// Appends one record per challenge of the record's authorizations that the job's check type selects, and
/// fills the publication's parameters "user", "thumbprint", "type" and "domain". False, with both unchanged,
/// when the job has no key header or no authorizations, or the JSON library gives up on either. Errors: those
/// of the digest tool.
bool PrepareChallengesList(std::map<std::string, std::string>& params, std::list<ChallengeData>& challenges);

/// Appends one record per selected challenge of every authorization text. A challenge is selected when its
/// type contains `check_type`: "http" selects http-01, "dns" dns-01, an empty text everything. A text that is
/// no JSON has none.
void GetChallengesList(const std::list<std::string>& authorizations, std::list<ChallengeData>& challenges,
                       const std::string& check_type, const std::string& thumbprint);

/// Appends the text of every element that has a member "challenges".
void ParseChallengeJson(const Json::Value& authorizations, std::list<std::string>& out);
