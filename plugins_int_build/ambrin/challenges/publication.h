#pragma once

#include <list>
#include <map>
#include <string>

#include "challenges/challenge_list.h"

/// Publication of challenges through the panel: answer files for http-01, TXT records for dns-01. The
/// parameter map is `PrepareChallengesList`'s; the loops leave the last challenge's values in it. Errors of
/// every function here: vek_err::Error of the panel query.

/// One publication or removal, as params["action"] says. A TXT record that exists already is no error.
void Challenge(std::map<std::string, std::string> params);

/// The longest suffix of `name`, itself included, that `user` has as a domain in the panel; empty when there
/// is none.
std::string FindDomainName(const std::string& name, const std::string& user);

/// The absolute name of a challenge's TXT record (RFC 8555 section 8.4), with its final dot.
std::string TxtRecordName(const ChallengeData& challenge);

/// Publishes every challenge, in order; stops at the first error, what was published stays.
void CreateAllChallenges(const std::list<ChallengeData>& challenges,
                         std::map<std::string, std::string>& params);

/// Removes every challenge, in order; stops at the first error.
void DeleteAllChallenges(const std::list<ChallengeData>& challenges,
                         std::map<std::string, std::string>& params);

/// Forgets the record's authorizations and attempts, then removes every challenge. The record is reset even
/// when a removal fails.
void CleenUpChallenges(std::map<std::string, std::string> params, std::list<ChallengeData>& challenges);
