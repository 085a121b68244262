#include "zelvek/cli/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>

#include "zelvek/base/text.h"

namespace zelvek::cli {

namespace {

constexpr std::size_t kGap = 2;
constexpr char kBlank = ' ';
constexpr std::size_t kWidest = 100;       // what people read in one look
constexpr std::size_t kNarrowest = 40;     // of a terminal that can show a table at all
constexpr std::size_t kLeastShort = 8;     // of a column that is shortened
constexpr std::size_t kLeastWrapped = 30;  // of the last column, where others can be shortened
constexpr std::size_t kMostLines = 8;      // of one cell
constexpr const char* kMore = "…";

using Row = std::vector<std::string>;
using Widths = std::vector<std::size_t>;

bool BeginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }

/// How many columns of a terminal a text takes: characters, not bytes.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), BeginsCharacter));
}

/// Where the character number `count` begins; the text's end where it has fewer.
std::size_t PlaceOf(const std::string& text, std::size_t count) {
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        if (BeginsCharacter(text[at]) && count-- == 0) break;
    }
    return at;
}

Row Shown(const Row& cells) {
    Row shown;
    shown.reserve(cells.size());
    for (const std::string& cell : cells) shown.push_back(WithoutControls(cell, kBlank));
    return shown;
}

std::string Shortened(const std::string& text, std::size_t width) {
    return Width(text) <= width ? text : text.substr(0, PlaceOf(text, width - 1)) + kMore;
}

/// The lines of a cell: they end at blanks where there are some.
std::vector<std::string> Wrapped(const std::string& text, std::size_t width) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    do {
        const std::string rest = text.substr(at, (width + 1) * 4);  // as many bytes as a line can have
        std::size_t end = PlaceOf(rest, width);
        if (end < rest.size() && lines.size() + 1 == kMostLines) {
            lines.push_back(rest.substr(0, PlaceOf(rest, width - 1)) + kMore);
            return lines;
        }
        const std::size_t blank = end < rest.size() ? rest.rfind(kBlank, end) : std::string::npos;
        if (blank != std::string::npos && blank > 0) end = blank;
        lines.push_back(rest.substr(0, end));
        at = std::min(text.find_first_not_of(kBlank, at + end), text.size());
    } while (at < text.size());
    return lines;
}

std::size_t Total(const Widths& widths) {
    return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
}

/// Makes columns narrower until all fit, where they can.
void Fit(Widths& widths, std::size_t width) {
    if (widths.empty() || Total(widths) <= width) return;
    const std::size_t last = widths.back();
    widths.back() = std::min(last, kLeastWrapped);
    const auto others_end = widths.end() - 1;
    while (Total(widths) > width) {
        const auto widest = std::max_element(widths.begin(), others_end);
        if (widest == others_end || *widest <= kLeastShort) break;
        --*widest;
    }
    const std::size_t others = Total(widths) - widths.back();
    const std::size_t room = width > others ? width - others : 0;
    widths.back() = std::min(last, std::max(room, kLeastShort));
}

void AddLine(std::string& table, const Row& cells, const Widths& widths) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = Shortened(cells[i], widths[i]);
        line += cell;
        if (i + 1 < cells.size()) line.append(widths[i] - Width(cell) + kGap, kBlank);
    }
    line.erase(line.find_last_not_of(kBlank) + 1);
    table += line + "\n";
}

void AddRow(std::string& table, Row cells, const Widths& widths) {
    if (cells.empty()) return;
    const std::string last = cells.back();
    for (const std::string& line : Wrapped(last, widths[cells.size() - 1])) {
        cells.back() = line;
        AddLine(table, cells, widths);
        std::fill(cells.begin(), cells.end(), "");
    }
}

}  // namespace

std::string Table(const std::vector<std::string>& headings, const std::vector<std::vector<std::string>>& rows,
                  std::size_t width) {
    std::vector<Row> shown{Shown(headings)};
    for (const Row& row : rows) shown.push_back(Shown(row));
    Widths widths(headings.size(), 1);
    for (const Row& row : shown) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    if (width != kAnyWidth) Fit(widths, width);
    std::string table;
    for (const Row& row : shown) AddRow(table, row, widths);
    return table;
}

std::size_t OutputWidth() {
    if (::isatty(STDOUT_FILENO) == 0) return kAnyWidth;
    winsize size{};
    const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return std::clamp<std::size_t>(known ? size.ws_col : kWidest, kNarrowest, kWidest);
}

std::string OutputTable(const std::vector<std::string>& headings,
                        const std::vector<std::vector<std::string>>& rows) {
    return Table(headings, rows, OutputWidth());
}

std::string OutputText(const std::string& text) { return OutputTable({text}, {}); }

}  // namespace zelvek::cli
