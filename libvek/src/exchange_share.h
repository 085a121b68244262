#pragma once

#include <curl/curl.h>

namespace vek_rpc {

/// What all exchanges have in common but their connection: looked-up names and TLS session tickets. Lives for
/// ever.
CURLSH* Share();

/// A multi handle on loan. They are kept for the next exchange, because libcurl keeps a parsed trust store in
/// them.
class Multi {
public:
    Multi();
    ~Multi();
    Multi(const Multi&) = delete;
    Multi& operator=(const Multi&) = delete;
    CURLM* get() const { return handle_; }

private:
    CURLM* handle_;
};

}  // namespace vek_rpc
