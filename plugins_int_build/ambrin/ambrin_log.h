#pragma once

#include <string>

#include "vek/file.h"
#include "vek/log.h"

/// The program's log: one module, through which every line goes.
inline const vek_log::Module ambrin_log("zelvek", "sslcert");

/// The text of a trace line and the source line that it is written from.
struct TraceText {
    TraceText(const char* trace_text,
              int source_line = __builtin_LINE())  // NOLINT(google-explicit-constructor)
        : text(trace_text), line(source_line) {}

    const char* text;
    int line;
};

/// Writes a line of the detailed trace: "<program>:<line> " and the text with its values. Nothing is
/// formatted while the trace is off.
template <class... Values>
void Trace(TraceText trace, const Values&... values) {
    if (!ambrin_log.Check(vek_log::kTrace)) return;
    const std::string name = vek_file::Name("plugins_int_build/ambrin/ambrin_bin");
    ambrin_log.Write(vek_log::kTrace, std::string("%s:%d ") + trace.text, name, trace.line, values...);
}

/// Writes a line about a failure or a warning.
template <class... Values>
void LogFailure(const char* text, const Values&... values) {
    ambrin_log.Write(vek_log::kFailure, text, values...);
}
