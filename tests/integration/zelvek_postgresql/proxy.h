#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

namespace zelvek::testing {

/// Stands between a client and a server on unix sockets. When it is told to, it lets one commit through, and
/// breaks off the connection in the place of the answer.
class Proxy {
public:
    explicit Proxy(const std::filesystem::path& server_folder);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    const std::filesystem::path& folder() const { return folder_; }

    /// The next commit's answer is lost; the commit itself, too, where it is not `done`.
    void LoseCommit(bool done) { lose_ = done ? kAnswer : kCommit; }

private:
    enum Lose { kNothing, kAnswer, kCommit };
    void Serve();
    void Carry(int client);

    std::filesystem::path folder_;
    std::filesystem::path server_;
    int listener_ = -1;
    std::atomic<Lose> lose_ = kNothing;
    std::atomic<bool> end_ = false;
    std::jthread thread_;
};

}  // namespace zelvek::testing
