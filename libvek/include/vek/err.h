#pragma once

#include <exception>
#include <string>

namespace vek_err {

/// The one error of the framework: what went wrong, as a word that programs compare (`type`) and as a text
/// that people read (`what`).
class Error : public std::exception {
public:
    /// An error of a module: `type()` is `code`; `what()` is "module: code: value".
    Error(const std::string& module, const std::string& code, const std::string& value);

    /// An error that a service reported in its answer: `type()` is the answer's type attribute, `what()` is
    /// `message` alone, because the service has written it for a person already.
    static Error Reported(const std::string& type, const std::string& message);

    const std::string& type() const noexcept { return type_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Error() = default;

    std::string type_;
    std::string text_;
};

}  // namespace vek_err
