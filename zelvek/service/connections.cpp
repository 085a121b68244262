#include "zelvek/service/connections.h"

#include <sys/socket.h>

#include <algorithm>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/panel/xml_answer.h"

namespace zelvek {

namespace {

std::string TooMany(const std::string& why) {
    const std::string body = ErrorAnswer({Code::kLater, "query", "", why});
    return "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/xml; charset=utf-8\r\nConnection: "
           "close\r\n"
           "Content-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Nobody waits for what the caller sends: it gets its answer whether it has asked or not.
void EndWith(int connection, const std::string& answer) {
    ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::shutdown(connection, SHUT_RDWR);
}

}  // namespace

void Connections::Open(int connection, const Caller& caller) {
    std::string excess;
    {
        const std::lock_guard lock(mutex_);
        excess = Excess(caller);
        if (excess.empty()) {
            open_[connection] = caller;
            deadlines_.Set(connection, kLimit);
            return;
        }
    }
    EndWith(connection, TooMany(excess));
}

std::optional<Caller> Connections::CallerAt(int connection) {
    const std::lock_guard lock(mutex_);
    const auto found = open_.find(connection);
    return found == open_.end() ? std::nullopt : std::optional(found->second);
}

void Connections::Arrived(int connection) { deadlines_.Lift(connection); }

void Connections::Answered(int connection) { deadlines_.Set(connection, kLimit); }

void Connections::Closed(int connection) {
    deadlines_.Lift(connection);
    const std::lock_guard lock(mutex_);
    open_.erase(connection);
}

std::size_t Connections::Count() {
    const std::lock_guard lock(mutex_);
    return open_.size();
}

std::string Connections::Excess(const Caller& caller) const {
    const auto count = [this](const auto& counts) {
        return std::count_if(open_.begin(), open_.end(),
                             [&counts](const auto& each) { return counts(each.second); });
    };
    if (count([&](const Caller& each) { return each.process == caller.process; }) >= kOfOneProcess)
        return "this process has too many connections open";
    if (caller.right == Right::kOwn ||
        count([](const Caller& each) { return each.right != Right::kOwn; }) < kOfOtherUsers)
        return "";
    return "other users than the service's have too many connections open";
}

}  // namespace zelvek
