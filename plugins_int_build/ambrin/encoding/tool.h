#pragma once

#include <string>

#include "vek/proc.h"

/// How every command-line tool is run: fed on standard input, read from standard output, unable to ask
/// anybody for a pass phrase. The value is 0x86.
constexpr int kToolMode = vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession;

/// Runs `command` with `input` and returns its whole standard output.
/// Errors: vek_err::Error("ambrin", error_code, output) when the exit status is not 0.
std::string RunFilter(const std::string& command, const std::string& input, const std::string& error_code);
