#include "exchange_share.h"

#include <array>
#include <mutex>
#include <new>
#include <vector>

namespace vek_rpc {
namespace {

struct Locks {
    std::array<std::mutex, CURL_LOCK_DATA_LAST> of;
};

void Lock(CURL* /*easy*/, curl_lock_data data, curl_lock_access /*access*/, void* locks) {
    static_cast<Locks*>(locks)->of.at(data).lock();
}

void Unlock(CURL* /*easy*/, curl_lock_data data, void* locks) {
    static_cast<Locks*>(locks)->of.at(data).unlock();
}

CURLSH* MakeShare() {
    CURLSH* share = curl_share_init();
    if (share == nullptr) throw std::bad_alloc();
    curl_share_setopt(share, CURLSHOPT_USERDATA, new Locks);
    curl_share_setopt(share, CURLSHOPT_LOCKFUNC, &Lock);
    curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, &Unlock);
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    return share;
}

struct Idle {
    std::mutex mutex;
    std::vector<CURLM*> handles;
};

// Never destroyed, like what it keeps: an exchange may take place after `main` has returned.
Idle& TheIdle() {
    static auto& idle = *new Idle;
    return idle;
}

CURLM* TakeIdle() {
    const std::lock_guard lock(TheIdle().mutex);
    auto& handles = TheIdle().handles;
    if (handles.empty()) return curl_multi_init();
    CURLM* handle = handles.back();
    handles.pop_back();
    return handle;
}

}  // namespace

CURLSH* Share() {
    static CURLSH* const share = MakeShare();
    return share;
}

Multi::Multi() : handle_(TakeIdle()) {
    if (handle_ == nullptr) throw std::bad_alloc();
}

Multi::~Multi() {
    const std::lock_guard lock(TheIdle().mutex);
    TheIdle().handles.push_back(handle_);
}

}  // namespace vek_rpc
