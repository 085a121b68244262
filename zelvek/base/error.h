#pragma once

#include <string>
#include <utility>

#include "vek/err.h"

namespace zelvek {

/// Why a panel function did not do what was asked: the error element of its answer.
class Refusal : public vek_err::Error {
public:
    /// `object` and `value` name what is refused; neither may hold a secret.
    Refusal(const std::string& type, std::string object, std::string value, const std::string& message)
        : Error(Error::Reported(type, message)), object_(std::move(object)), value_(std::move(value)) {}

    const std::string& object() const { return object_; }
    const std::string& value() const { return value_; }

private:
    std::string object_;
    std::string value_;
};

}  // namespace zelvek
