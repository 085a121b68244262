#include "vek/err.h"

namespace vek_err {

Error::Error(const std::string& module, const std::string& code, const std::string& value)
    : type_(code), text_(module + ": " + code + ": " + value) {}

Error Error::Reported(const std::string& type, const std::string& message) {
    Error error;
    error.type_ = type;
    error.text_ = message;
    return error;
}

}  // namespace vek_err
