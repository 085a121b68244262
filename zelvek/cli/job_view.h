#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vek/client.h"
#include "zelvek/records/job_record.h"

/// How a job and its history are shown.
namespace zelvek::cli {

/// Where a user is named, only that user's job is shown.
vek_client::Result AskForJob(int id, const std::string& user = "");

using records::JobJson;
using records::LastError;
using records::StateOf;

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
