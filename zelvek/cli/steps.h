#pragma once

#include <string>

#include "vek/client.h"

/// What runs do, in plain words.
namespace zelvek::cli {

/// The step that a line of the plug-in's log tells of, on one line with its time, "10:21:03  places the
/// order"; empty for a line that tells of none. Texts from outside stand in it shortened and without control
/// characters.
std::string StepOfLine(const std::string& line);

/// What an event of a job's history means, with its detail's text: "the authority refuses a name's proof:
/// Return code: 403 ...". An event that is not known is told by its name.
std::string WordsOfEvent(const std::string& event, const std::string& detail);

/// The same with the event's time, on one line: "10:21:03  failed: ...".
std::string StepOfEvent(const vek_xml::Node& event);

}  // namespace zelvek::cli
