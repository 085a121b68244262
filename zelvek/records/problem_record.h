#pragma once

#include "vek/xml.h"

namespace Json {
class Value;
}

namespace zelvek::records {

/// One notification of the answer of "zelvek.problem.list".
Json::Value ProblemJson(const vek_xml::Node& problem);

}  // namespace zelvek::records
