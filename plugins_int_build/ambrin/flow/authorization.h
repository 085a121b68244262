#pragma once

#include <list>
#include <map>
#include <string>

#include "acme/request.h"
#include "acme/response.h"
#include "challenges/challenge_list.h"

/// Fetches the authorizations (RFC 8555 section 7.5) of blank-separated URLs and keeps those that are not
/// valid yet in the record's `challenges`, as one JSON array. False at the first that cannot be fetched;
/// `challenges` is unchanged then.
bool Autorization(QueryParams& params, const std::string& authorizations);

/// Posts `params.payload` to `params.url` and polls `poll_url`, the same URL where that is empty, until a
/// request fails, the object is no longer pending or processing, or 60 polls are used up. Sleeps between
/// polls as long as the authority's "retry-after" asks. Returns the last response. The job log has
/// "<prefix>_success" for a valid object, "<prefix>_fail" for a failed response, "<prefix>_req_attempt" for
/// anything else.
AcmeResponse WaitToResolve(QueryParams& params, const std::string& prefix, const std::string& poll_url = "");

/// Answers every challenge (RFC 8555 section 7.5.1) and waits for its result, one after the other, then
/// removes what was published for them, whatever the outcome. False at the first challenge whose request
/// failed or that has an error.
bool ProcessChallenges(std::list<ChallengeData>& challenges, QueryParams& params,
                       std::map<std::string, std::string>& challenge_params);
