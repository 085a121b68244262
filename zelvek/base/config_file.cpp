#include "zelvek/base/config_file.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

std::string WithoutBlanksAround(const std::string& text) {
    constexpr const char* kBlanks = " \t\r";  // the last for files from other systems
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

ConfigLine Read(const std::string& file, int number, const std::string& text) {
    const std::size_t equals = text.find('=');
    const bool controls =
        std::any_of(text.begin(), text.end(), [](char c) { return c != '\t' && IsControl(c); });
    if (equals == 0 || equals == std::string::npos || controls) {
        throw Error(Code::kValue, file + ":" + std::to_string(number) + ": \"" + Printable(text) +
                                      "\" is no line of the form option=value");
    }
    return {number, WithoutBlanksAround(text.substr(0, equals)),
            WithoutBlanksAround(text.substr(equals + 1))};
}

}  // namespace

std::vector<ConfigLine> ReadConfigFile(const std::string& file) {
    std::ifstream input(file);
    std::vector<ConfigLine> lines;
    int number = 0;
    for (std::string line; std::getline(input, line);) {
        ++number;
        const std::string text = WithoutBlanksAround(line);
        if (!text.empty() && text.front() != '#') lines.push_back(Read(file, number, text));
    }
    // A folder opens, and then cannot be read.
    if (!input.eof()) throw IoError("cannot read", file, errno);
    return lines;
}

std::vector<fs::path> FilesOf(const fs::path& file) {
    std::vector<fs::path> added;
    std::error_code error;
    const fs::path folder = file.parent_path() / "conf.d";
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.front() != '.' && entry->path().extension() == ".conf") added.push_back(entry->path());
    }
    if (error && error != std::errc::no_such_file_or_directory)
        throw IoError("cannot read", folder, error.value());
    std::sort(added.begin(), added.end());
    added.insert(added.begin(), file);
    return added;
}

}  // namespace zelvek
