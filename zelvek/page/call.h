#pragma once

#include <string>

#include "zelvek/page/api.h"

namespace zelvek::page {

/// A request that has found its route.
struct Api::Call {
    const Request& request;
    const Visitor& visitor;
    std::string id;      // the number in its path
    std::string action;  // of a change

    /// Empty where there is none.
    std::string Parameter(const std::string& name) const {
        const auto found = request.query.find(name);
        return found == request.query.end() ? "" : found->second;
    }
};

}  // namespace zelvek::page
