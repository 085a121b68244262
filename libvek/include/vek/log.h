#pragma once

#include <initializer_list>
#include <string>

/// The run's log file: `$VEK_LOG_DIR/<name>.log` (default directory /var/log/vek). Nothing secret may be
/// given to it.
namespace vek_log {

/// Levels: 0 nothing, 3 errors of use, 4 failures and warnings, 8 function trace, 9 detailed trace.
enum Level : int { kUse = 3, kFailure = 4, kFunction = 8, kTrace = 9 };

/// Opens the log file `<name>.log` for appending and enables levels up to `level`, or up to the number in
/// VEK_LOG_LEVEL where that is lower. A file that cannot be
/// opened costs one line on standard error, and the run goes on without it. When somebody renames or removes
/// the file, the next line begins a new one.
void Init(const std::string& name, int level);

/// One value for a format's "%s" or "%d".
class Value {
public:
    Value(const std::string& text) : text_(text) {}       // NOLINT(google-explicit-constructor)
    Value(const char* text) : text_(text) {}              // NOLINT(google-explicit-constructor)
    Value(int number) : text_(std::to_string(number)) {}  // NOLINT(google-explicit-constructor)
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

/// `format` with each "%s" and "%d" replaced by the next value's text; "%%" is a percent sign; a place
/// without a value stays as it is.
std::string Format(const std::string& format, std::initializer_list<Value> values);

/// A part of a program that writes to the log. Its lines bear the names of its component and module.
class Module {
public:
    Module(std::string component, std::string name);

    /// Whether lines of this level are written; false before `Init`.
    bool Check(int level) const;

    /// Writes one line whose text stands as it is, line feeds included: date and time, process id, level,
    /// component and module, text. Does nothing where `Check(level)` is false.
    template <class... Values>
    void Write(int level, const std::string& format, const Values&... values) const {
        if (Check(level)) WriteText(level, Format(format, {Value(values)...}));
    }

    void WriteText(int level, const std::string& text) const;

private:
    std::string component_;
    std::string name_;
};

}  // namespace vek_log
