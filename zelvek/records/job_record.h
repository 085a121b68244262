#pragma once

#include <string>

#include "vek/client.h"
#include "vek/xml.h"

namespace Json {
class Value;
}

/// Jobs as programs read them, made of the service's answers.
namespace zelvek::records {

/// The word for a job's state: paused, verified, failed, running, waiting.
std::string StateOf(const vek_xml::Node& job);

/// Why the last run of a job that fails has failed, as its history tells it: plain text, with what was
/// refused before anything else.
std::string LastError(const vek_xml::Node& job);

/// One job of a list: its fields, and "state", "next_step" and "last_error" (null unless it fails).
Json::Value JobJson(const vek_xml::Node& job);

/// The answer of "zelvek.job.show": the job with its events.
Json::Value JobJson(const vek_client::Result& shown);

}  // namespace zelvek::records
