#pragma once

#include <string>
#include <vector>

namespace zelvek::doctor {

/// What was found of one thing that certificates need.
struct Check {
    enum class State {
        kFine,
        kNote,   // nothing is broken, but a person should know
        kWrong,  // certificates fail, or will
    };

    std::string about;  // what was looked at, in a few words
    State state;
    std::string said;       // what was found, one line
    std::string help = {};  // what a person can do; empty where nothing needs to be done
};

using Checks = std::vector<Check>;

inline Check Fine(const std::string& about, const std::string& said) {
    return {about, Check::State::kFine, said};
}
inline Check Note(const std::string& about, const std::string& said, const std::string& help = {}) {
    return {about, Check::State::kNote, said, help};
}
inline Check Wrong(const std::string& about, const std::string& said, const std::string& help) {
    return {about, Check::State::kWrong, said, help};
}

}  // namespace zelvek::doctor
