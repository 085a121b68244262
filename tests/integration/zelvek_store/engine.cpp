#include "engine.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include "../zelvek_postgresql/server.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace fs = std::filesystem;

std::vector<Engine> Engines() {
    const auto file = [](const fs::path& folder) { return std::make_unique<Store>(folder / "zelvek.db"); };
    const auto server = [](const fs::path& folder) {
        const fs::path mark = folder / "begun";
        if (!fs::exists(mark)) PostgresqlServer::Shared().Renew();
        std::ofstream{mark};
        return std::make_unique<Store>(PostgresqlServer::Shared().Url());
    };
    return {{"sqlite", file}, {"postgresql", server}};
}

std::string EngineName(const ::testing::TestParamInfo<Engine>& info) { return info.param.name; }

StoreTest::StoreTest() {
    std::string pattern = (fs::temp_directory_path() / "zelvek.XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    store_ = GetParam().open(folder_);
}

StoreTest::~StoreTest() {
    store_.reset();
    fs::remove_all(folder_);
}

void StoreTest::Reopen() {
    store_.reset();
    store_ = GetParam().open(folder_);
}

long long StoreTest::Rows(const std::string& table) {
    Transaction transaction(*store_);
    long long rows = -1;
    transaction.Prepare("SELECT count(*) FROM " + table).Into(rows).Next();
    return rows;
}

int StoreTest::AddJob(Job job) {
    return Do([&](Transaction& transaction) {
        job.id = jobs::Add(transaction, job);
        jobs::Save(transaction, job);
        return job.id;
    });
}

int StoreTest::AddDue(const std::string& due, bool Job::*flag) {
    Job job;
    job.due = due;
    if (flag != nullptr) job.*flag = true;
    return AddJob(job);
}

Job StoreTest::FindJob(int id) {
    Transaction transaction(*store_);
    return jobs::Find(transaction, id);
}

Job FilledJob(const std::string& text) {
    Job job;
    int number = 100;
    for (const JobField& field : kJobFields) {
        if (const auto* member = std::get_if<std::string Job::*>(&field.member)) {
            job.** member = text + " " + field.key;
        } else if (const auto* count = std::get_if<int Job::*>(&field.member)) {
            job.** count = ++number;
        }
    }
    return job;
}

const std::vector<std::string>& AwkwardTexts() {
    static const std::vector<std::string> texts{
        "",
        "it's \"quoted\" `twice` ''",
        "'; DELETE FROM job; --",
        " blanks and\ttabs \t ",
        "lines\nof\r\nthree kinds\r",
        "\n",
        "b\u00fccher \u2603 \U0001d11e",
        ":id ? ?1 $1 %s %% \\ \\n {} @x #",
        "NULL",
        "0",
        "0012",
        "1e5",
        std::string(65536, 'x') + "\u00fc'\n",
    };
    return texts;
}

std::vector<std::string> Differences(const Job& job, const Job& other) {
    std::vector<std::string> keys;
    for (const JobField& field : kJobFields) {
        const bool same = std::visit([&](auto member) { return job.*member == other.*member; }, field.member);
        if (!same) keys.emplace_back(field.key);
    }
    return keys;
}

Process Living() { return FindProcess(::getpid()).value(); }

Process Dead() {
    Process process = Living();
    process.start -= 1;
    return process;
}

OtherProcess::OtherProcess() : pid_(::fork()) {
    if (pid_ == 0) {
        for (;;) ::pause();
    }
}

OtherProcess::~OtherProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

Process OtherProcess::process() const { return FindProcess(pid_).value(); }

}  // namespace zelvek::testing
