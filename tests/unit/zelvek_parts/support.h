#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>
#include "zelvek/base/error.h"

/// What the tests of the service's parts share.
namespace parts {

/// A folder of the test's own, removed with all that is in it.
class TempFolder {
public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "zelvek-parts-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

struct Failure {
    std::string type;  // "none" where nothing was thrown
    std::string text;
    zelvek::Code code = zelvek::Code::kInternal;
};

inline Failure FailureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const zelvek::Error& error) {
        return {zelvek::Word(error.code()), error.what(), error.code()};
    }
    return {"none", "", {}};
}

inline std::string TypeOf(const std::function<void()>& action) { return FailureOf(action).type; }

inline std::string Content(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::ostringstream content;
    content << in.rdbuf();
    return in ? content.str() : "(unreadable)";
}

inline void Put(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file) << content;
}

inline mode_t Mode(const std::filesystem::path& file) {
    struct stat status {};
    return lstat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// The names in a folder, sorted.
inline std::vector<std::string> Entries(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace parts
