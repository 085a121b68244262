// What the command line shows: any text stays on its line and in its column, and of a log just the lines of
// one process.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/plain.h"
#include "support/target.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/log_follower.h"
#include "zelvek/cli/table.h"

namespace {

constexpr pid_t kPid = 42;

void HoldTable(const std::string& a, const std::string& b) {
    const std::string table = zelvek::cli::Table({"NAME", "DETAIL"}, {{a, b}, {"x", "y"}, {b, ""}});
    const auto lines = plain::Lines(table);
    fuzz::Hold(lines.size() == 4, "every row is one line");
    for (const std::string& line : lines) {
        fuzz::Hold(!plain::HasControl(line), "no control character is shown");
        fuzz::Hold(!line.ends_with(' '), "no line ends with blanks");
    }
    const std::string shown = zelvek::WithoutControls(a, ' ');
    fuzz::Hold(shown.size() <= a.size() && !plain::HasControl(shown), "a text becomes no longer");
    fuzz::HoldEqual(zelvek::WithoutControls(shown, ' '), shown, "what is shown is shown as it is");
    fuzz::Hold(lines[1].starts_with(shown.substr(0, shown.find_last_not_of(' ') + 1)),
               "a row begins with its first cell");
}

/// The process that an entry's first line names: "YYYY-MM-DD HH:MM:SS [pid]"; an empty text for any other
/// line.
std::string ProcessOf(const std::string& line) {
    std::string form = line.substr(0, 21);
    for (char& c : form) c = c >= '0' && c <= '9' ? '0' : c;
    const std::size_t end = line.find(']');
    return form == "0000-00-00 00:00:00 [" && end != std::string::npos ? line.substr(21, end - 21) : "";
}

std::string LinesOf(const std::string& log, pid_t pid) {
    std::string picked;
    bool ours = false;
    std::string text = log.substr(0, log.rfind('\n') + 1);
    for (const std::string& line : plain::Lines(text)) {
        const std::string process = ProcessOf(line);
        if (!process.empty()) ours = process == std::to_string(pid);
        if (ours) picked += line + "\n";
    }
    return picked;
}

/// A log that grows piece by piece, as its lines are written.
void HoldFollowing(const std::vector<std::string>& pieces) {
    static const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("followed." + std::to_string(getpid()) + ".log");
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    zelvek::cli::LogFollower follower(file, 0);
    std::string log;
    std::string seen;
    for (const std::string& piece : pieces) {
        out << piece << std::flush;
        log += piece;
        seen += follower.Next(kPid);
        fuzz::HoldEqual(seen, LinesOf(log, kPid), "the process's whole lines have been shown");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    std::vector<std::string> pieces;
    while (input.remaining_bytes() > 0 && pieces.size() < 8) pieces.push_back(TakeText(input));
    pieces.resize(std::max<std::size_t>(pieces.size(), 2));
    HoldTable(pieces[0], pieces[1]);
    HoldFollowing(pieces);
}
