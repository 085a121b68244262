#pragma once

#include <memory>
#include <string>
#include <vector>

/// The contract's tests run twice, against the real framework and against its double; they need the same
/// outside both times. real_world.cpp makes it of real processes, sockets and files, double_world.cpp of
/// scripted answers.
namespace contract {

struct Reply {
    int status = 200;
    std::string header_lines;  // each with its CR LF, without the status line and without a Content-Length
    std::string body;
};

/// The outside of one test; one at a time.
class World {
public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Says what the shell makes of a command that gets `input` (empty where the program feeds it nothing).
    /// Here the double learns it; the real shell knows it already, so the two have to agree.
    void PrepareChild(const std::string& command, const std::string& input, const std::string& output,
                      int status);

    /// The next query of the service "contract" has this text and gets this answer.
    void PrepareAnswer(const std::string& query, const std::string& xml);

    /// The next exchange is `method` on the URL that is returned, and gets this reply.
    std::string PrepareExchange(const std::string& method, const Reply& reply);

    /// Opens the log with vek_log::Init, for levels up to `level`. Only one test of the program may do it:
    /// there is no way back to the state before it.
    void OpenLog(int level);

    /// The texts that were written to the log so far, in order; for texts of one line.
    std::vector<std::string> LogTexts();

    /// PEM text of a private RSA key of 2048 bits.
    std::string KeyPem();

private:
    struct Outside;
    std::unique_ptr<Outside> outside_;
};

}  // namespace contract
