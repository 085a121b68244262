#pragma once

#include <string>

namespace zelvek::testing {

/// The text of docs/job-record.md, made from the table of a job's fields.
std::string JobRecordPage();

}  // namespace zelvek::testing
