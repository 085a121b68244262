#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vek/client.h"
#include "vek/err.h"

namespace zelvek::testing {

constexpr uid_t kNobody = 65534;

/// What a command that has ended said.
struct Ended {
    int status = -1;  // exit status, 128 + signal
    std::string out;
    std::string err;
};

/// A command under way, with its output in files.
class Command {
public:
    Command(const std::vector<std::string>& words, const std::filesystem::path& outputs);
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    pid_t pid() const { return pid_; }
    void Signal(int number) const;
    bool Running();
    Ended Wait();
    std::string Out() const;
    std::string Err() const;

private:
    std::filesystem::path outputs_;
    pid_t pid_;
    int status_ = -1;
    bool ended_ = false;
};

/// Runs `work` in a child process of its own, to the end of which this waits; returns its exit status. What
/// is thrown there makes the status 99.
int InChild(const std::function<void()>& work);

/// Polls until it is true, for as long as a slow machine may take; false when it never is.
bool Eventually(const std::function<bool()>& condition);

std::string ReadFile(const std::filesystem::path& file);

/// A service in a temporary directory of its own.
class ServiceTest : public ::testing::Test {
protected:
    ServiceTest();
    ~ServiceTest() override;

    /// Starts the service and waits until it answers.
    void Start(const std::map<std::string, std::string>& options = {});
    void Stop();

    /// As a crash would.
    void Kill();

    /// The service's command line: the usual options (no scheduler), with `options` instead of or besides
    /// them; an empty value leaves one out.
    std::vector<std::string> ServeCommand(const std::map<std::string, std::string>& options = {}) const;

    /// One query, as a plug-in sends it.
    static vek_client::Result Ask(const std::string& text,
                                  const std::map<std::string, std::string>& entries = {});

    /// The type of the error that a query ends with; empty for none.
    static std::string ErrorOf(const std::string& text,
                               const std::map<std::string, std::string>& entries = {});

    /// An HTTP request; `header` is further lines, each with its CR LF.
    static std::string Request(const std::string& line, const std::string& body,
                               const std::string& header = "");

    /// Sends just these bytes to the service and returns all that comes back; empty when it does not let us
    /// connect.
    std::string Raw(const std::string& request) const;

    /// Adds a job, whoever has its names, and returns its id.
    static std::string AddJob(const std::map<std::string, std::string>& entries = {});

    /// The write-back of a run that has got nowhere, with `entries` instead of or besides it.
    static std::map<std::string, std::string> WriteBack(
        const std::string& id, const std::map<std::string, std::string>& entries = {});

    /// Publishes an answer file: challenges of a write-back count only where something was published for
    /// them.
    static void PublishAnswer(const std::string& token = "token") {
        Ask("func=ambrin_challenge&action=create&user_name=anna&content=c", {{"file_name", token}});
    }
    static void ReadJob(const std::string& id) { Ask("func=ambrin.data.edit&out=xml", {{"elid", id}}); }
    static void Write(const std::string& id, const std::map<std::string, std::string>& entries = {}) {
        Ask("func=ambrin.data.edit&sok=ok", WriteBack(id, entries));
    }

    /// A client command, to its end.
    Ended Zelvek(const std::vector<std::string>& words);

    std::filesystem::path Path(const std::string& name) const { return folder_ / name; }
    std::filesystem::path Database() const { return Path("zelvek.db"); }
    std::filesystem::path Socket() const { return Path("run") / "zelvek.sock"; }
    std::string Records() const { return ReadFile(Path("records")); }
    bool HasAnswer(const std::string& token) const {
        return std::filesystem::exists(Path("answers") / token);
    }
    Command& service() { return *service_; }

    std::unique_ptr<Command> StartCommand(const std::vector<std::string>& words);

private:
    std::filesystem::path folder_;
    std::unique_ptr<Command> service_;
    int commands_ = 0;
};

}  // namespace zelvek::testing
