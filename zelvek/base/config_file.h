#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zelvek {

/// What one line of a file of options says.
struct ConfigLine {
    int number;  // in the file, from 1
    std::string name;
    std::string value;
};

/// Reads a file of lines "option=value". The value is everything after the first "=" as it stands: quotes,
/// commas, brackets and "#" mean nothing there. Blanks around name and value do not count, nor do empty lines
/// and lines that begin with "#". Errors: Error of code kIo for a file that cannot be read; of code kValue,
/// with file and line, for any other line, and for one with a control character.
std::vector<ConfigLine> ReadConfigFile(const std::string& file);

/// The file, then the files of the folder `conf.d` beside it by their names: a package or another program
/// adds options there without changing a file of the administrator's. Errors: Error of code kIo.
std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& file);

}  // namespace zelvek
