#pragma once

#include <curl/curl.h>

namespace vek_rpc {

/// What all exchanges of the process share: looked-up names and TLS session tickets, but no connection. Never
/// freed.
CURLSH* Share();

/// One of libcurl's multi handles, borrowed for one exchange. It is kept for a later one, because libcurl
/// keeps the parsed trust store in it.
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
