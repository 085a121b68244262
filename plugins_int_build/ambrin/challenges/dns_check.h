#pragma once

#include <list>
#include <string>

#include "challenges/challenge_list.h"

/// The data of every answer record for a name and a type, as five public resolvers see it, joined by ", ";
/// TXT data keeps its quotes. One run of `dig`, whose exit status is not looked at: no answer is an empty
/// text.
std::string Dig(const std::string& name, const std::string& type);

/// Whether every challenge's TXT record is visible. Appends "<name> TXT <content>" to `missing`, with ", "
/// between entries, for each that is not. One run of `dig` per challenge.
bool DigAllRecords(const std::list<ChallengeData>& challenges, std::string& missing);
