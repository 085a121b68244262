#include "zelvek/service/connections.h"

#include <sys/socket.h>

#include <algorithm>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/panel/xml_answer.h"

namespace zelvek {

namespace {

std::string TooMany() {
    const std::string body =
        ErrorAnswer({Code::kLater, "query", "", "this process has too many connections open"});
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

void Connections::Open(int connection, pid_t process) {
    static const std::string too_many = TooMany();
    {
        const std::lock_guard lock(mutex_);
        if (CountOf(process) < kOfOneProcess) {
            open_[connection] = process;
            deadlines_.Set(connection, kLimit);
            return;
        }
    }
    EndWith(connection, too_many);
}

bool Connections::IsOpen(int connection) {
    const std::lock_guard lock(mutex_);
    return open_.contains(connection);
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

int Connections::CountOf(pid_t process) const {
    return static_cast<int>(std::count_if(open_.begin(), open_.end(),
                                          [process](const auto& each) { return each.second == process; }));
}

}  // namespace zelvek
