#pragma once

#include <array>

#include "vek/client.h"

namespace Json {
class Value;
}

namespace zelvek::records {

/// The words for the states in which jobs are counted.
inline constexpr std::array kStates{"failed", "failing", "waiting", "running", "verified", "paused"};

/// The answer of "zelvek.status".
Json::Value StatusJson(const vek_client::Result& status);

}  // namespace zelvek::records
