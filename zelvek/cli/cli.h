#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "vek/client.h"
#include "vek/err.h"

/// The command line: the service itself, and people's and programs' way to ask it. One file for each noun.
namespace zelvek::cli {

enum Status : int {
    kSuccess = 0,
    kFailure = 1,
    kUsage = 2,
    kWaiting = 3,      // a job's run has ended, and a later one goes on
    kNothingToDo = 4,  // the job's certificate is there already
};

/// Parses the arguments, does what they say, and returns the exit status. Errors are one line on standard
/// error.
int Main(int argc, char** argv);

struct Output {
    bool json = false;   // for programs: one JSON text on standard output
    bool quiet = false;  // no progress
};

int AddDomain(const std::string& name, const std::string& user, const Output& output);
int ListDomains(const std::string& user, const Output& output);

struct NewJob {
    std::string name, user;
    std::vector<std::string> aliases;
    std::string check = "http";
    std::string certname, res_name;
    std::vector<std::string> csr;  // KEY=VALUE
    bool skip_account_check = false;
    int max_account_checks = 3;
};

int AddJob(const NewJob& job, const Output& output);
int ListJobs(const Output& output);
int ShowJob(int id, const Output& output);
int RemoveJob(int id, const Output& output);

/// Runs the plug-in for the job as a child, following its log.
int RunJob(int id, const std::filesystem::path& plugin, const Output& output);

int ListProblems(const Output& output);
int ShowAccount(const Output& output);

/// Asks the running service. Errors: vek_err::Error; that it cannot be reached is one with a text for people.
vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters);

}  // namespace zelvek::cli
