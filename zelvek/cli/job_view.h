#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vek/client.h"

namespace Json {
class Value;
}

/// How a job and its history are shown.
namespace zelvek::cli {

/// Where a user is named, only that user's job is shown.
vek_client::Result AskForJob(int id, const std::string& user = "");

/// The word for a job's state: paused, verified, failed, running, waiting.
std::string StateOf(const vek_xml::Node& job);

/// Why the last run of a job that fails has failed, as its history tells it: plain text, with what was
/// refused before anything else.
std::string LastError(const vek_xml::Node& job);

/// One job of a list: its fields, and "state", "next_step" and "last_error" (null unless it fails).
Json::Value JobJson(const vek_xml::Node& job);

/// The answer of `AskForJob`: the job with its events.
Json::Value JobJson(const vek_client::Result& shown);

/// What the job does next, or what is wrong with it: a line; empty where the service says nothing.
std::string JobSentence(const vek_client::Result& shown);

/// What there is to say beside that, a line each; empty for nothing.
std::string JobFindings(const vek_client::Result& shown);

/// The answer of `AskForJob` without the events, as a table with a row for each value.
std::string JobTable(const vek_client::Result& shown);

std::size_t EventCount(const vek_client::Result& shown);

/// The events from number `first` on as a table; empty when there is none.
std::string EventTable(const vek_client::Result& shown, std::size_t first);

}  // namespace zelvek::cli
