#pragma once

#include <string>

namespace zelvek::records {

/// What an event of a job's history means, with its detail's text: "the authority refuses a name's proof:
/// Return code: 403 ...". An event that is not known is told by its name.
std::string WordsOfEvent(const std::string& event, const std::string& detail);

}  // namespace zelvek::records
