#pragma once

#include <cstddef>
#include <string>

#include "vek/client.h"

namespace Json {
class Value;
}

namespace zelvek::cli {

/// A shown job as JSON, with its events.
Json::Value JobJson(const vek_client::Result& shown);

/// The events of a shown job from number `first` on, as a table; empty when there is none.
std::string EventTable(const vek_client::Result& shown, std::size_t first);

std::size_t EventCount(const vek_client::Result& shown);

/// One word: verified, failed, running, or waiting.
std::string StateOf(const vek_xml::Node& job);

vek_client::Result AskForJob(int id);

}  // namespace zelvek::cli
