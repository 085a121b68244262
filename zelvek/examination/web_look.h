#pragma once

#include <string>

namespace zelvek {

/// What stands at a URL of port 80, fetched from one address of its host.
struct WebLook {
    std::string state;  // base/finding_state.h: there, other, redirect, unreached
    std::string
        detail;  // status and first line, the place that a redirect names, or why nothing came; 1 line
};

/// Fetches `/.well-known/acme-challenge/<token>` of `host` at `address` and compares it with `content`. One
/// exchange with bounded time and size; a redirect is not followed. `port` is another one than 80 for tests.
WebLook LookAtAnswer(const std::string& host, const std::string& address, const std::string& token,
                     const std::string& content, int port = 80);

}  // namespace zelvek
