#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <sstream>

#include "integration/vek/certificate.h"
#include "integration/vek/server.h"
#include "vek/str.h"

namespace vek_test {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

inline constexpr seconds kSoon{60};  // for what takes no time on an idle machine

inline std::string TextOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

template <class Condition>
bool Comes(Condition condition) {
    const auto end = steady_clock::now() + kSoon;
    while (!condition()) {
        if (steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

/// A plug-in as a process of its own, and the service that it asks.
class Plugin : public testing::Test {
protected:
    void StartService() {
        service =
            std::make_unique<Service>(folder.path(), "zelvek", [](const std::string&) { return "<doc/>"; });
    }

    // Starts the plug-in; `prepare` runs in the new process.
    void Start(
        const std::string& what, const std::optional<std::string>& value = "", void (*prepare)() = [] {}) {
        pid = fork();
        if (pid != 0) return;
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        prepare();
        execl(VEK_TEST_PLUGIN, "vek_test_plugin", what.c_str(), value ? value->c_str() : nullptr, nullptr);
        _exit(99);
    }

    bool IsReady() const {
        return Comes([this] { return TextOf(out) == "ready\n"; });
    }

    // Its exit status; 1000 and more for the signal that ended it.
    int End() {
        int status = 0;
        const bool ended = Comes([&] { return waitpid(pid, &status, WNOHANG) == pid; });
        if (!ended) {
            ADD_FAILURE() << "the plug-in does not end";
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        }
        return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    // Its exit status after this signal, which it gets when it is in the middle of its wait.
    int EndBy(int number) {
        std::this_thread::sleep_for(milliseconds(300));
        EXPECT_EQ(kill(pid, 0), 0);
        EXPECT_EQ(kill(pid, number), 0);
        return End();
    }

    std::vector<std::string> Queries() const {
        std::vector<std::string> queries;
        for (const auto& request : service->requests()) queries.push_back(request.body);
        return queries;
    }

    std::string Log() const { return TextOf(folder.file("plugin.log")); }

    TempFolder folder;
    Variable run_dir{"VEK_RUN_DIR", folder.path()};
    Variable log_dir{"VEK_LOG_DIR", folder.path()};
    std::string out = folder.file("out");
    std::string err = folder.file("err");
    std::unique_ptr<Service> service;
    pid_t pid = 0;
};

inline constexpr char kWrittenBack[] = "func=write_back&detail=";

}  // namespace vek_test
