#include "zelvek/base/config_file.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek {

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

}  // namespace zelvek
