#pragma once

#include <string>

#include "vek/client.h"

/// What runs do, in plain words.
namespace zelvek::cli {

/// The step that a line of the plug-in's log tells of, on one line with its time, "10:21:03  places the
/// order"; empty for a line that tells of none. Texts from outside stand in it shortened and without control
/// characters.
std::string StepOfLine(const std::string& line);

/// What an event of a job's history means (records/event_words.h), with its time, on one line:
/// "10:21:03  failed: ...".
std::string StepOfEvent(const vek_xml::Node& event);

}  // namespace zelvek::cli
