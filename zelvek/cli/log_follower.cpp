#include "zelvek/cli/log_follower.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <system_error>
#include <utility>

#include "vek/str.h"

namespace zelvek::cli {

namespace {

constexpr std::size_t kTimestampLength = 19;  // YYYY-MM-DD HH:MM:SS

/// The text between the brackets of an entry's first line "YYYY-MM-DD HH:MM:SS [pid] ..."; empty for any
/// other line.
std::string ProcessOf(const std::string& line) {
    const std::string form = "0000-00-00 00:00:00 [";
    if (line.size() < form.size()) return "";
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool digit = line[i] >= '0' && line[i] <= '9';
        if (form[i] == '0' ? !digit : line[i] != form[i]) return "";
    }
    const auto end = line.find(']', kTimestampLength);
    return end == std::string::npos ? "" : line.substr(form.size(), end - form.size());
}

}  // namespace

LogFollower::LogFollower(std::filesystem::path file, std::uintmax_t begin)
    : file_(std::move(file)), position_(begin) {}

std::uintmax_t LogFollower::EndOf(const std::filesystem::path& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

std::string LogFollower::Next(pid_t pid) {
    // A log that has become shorter is a new file.
    if (EndOf(file_) < position_) position_ = 0;
    std::ifstream in(file_, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(position_));
    const std::string news{std::istreambuf_iterator<char>(in), {}};
    position_ += news.size();
    rest_ += news;

    std::string lines;
    while (rest_.find('\n') != std::string::npos) {
        const std::string line = str::GetWord(rest_, '\n');
        const std::string process = ProcessOf(line);
        if (!process.empty()) ours_ = process == std::to_string(pid);
        if (ours_) lines += line + "\n";
    }
    return lines;
}

}  // namespace zelvek::cli
