#pragma once

#include <functional>
#include <string>
#include <vector>

#include "zelvek/base/command_line.h"

/// What may stand next on a command line, for shells.
namespace zelvek::cli {

/// One word that may stand there, and what it means.
struct Candidate {
    std::string word;
    std::string meaning = {};

    bool operator==(const Candidate&) const = default;
};

/// What the running service has of one kind: "job", "problem", "domain", "user", "authority".
using AskForNames = std::function<std::vector<Candidate>(const std::string& kind)>;

/// `words` are those after the program's name; the last one is unfinished, and may be empty. The candidates
/// begin with it. `names` is asked only where one of these can stand.
std::vector<Candidate> Complete(const CommandText& line, const std::vector<std::string>& words,
                                const AskForNames& names);

/// The names of the service that runs here; none where there is no service that answers at once.
std::vector<Candidate> NamesOfService(const std::string& kind);

}  // namespace zelvek::cli
