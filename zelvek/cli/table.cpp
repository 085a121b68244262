#include "zelvek/cli/table.h"

#include <algorithm>

#include "zelvek/base/text.h"

namespace zelvek::cli {

namespace {

constexpr std::size_t kGap = 2;
constexpr char kBlank = ' ';

/// How many columns of a terminal a text takes: characters, not bytes.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

void AddRow(std::string& table, const std::vector<std::string>& cells,
            const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = WithoutControls(cells[i], kBlank);
        line += cell;
        if (i + 1 < cells.size()) line.append(widths[i] - Width(cell) + kGap, kBlank);
    }
    line.erase(line.find_last_not_of(kBlank) + 1);
    table += line + "\n";
}

}  // namespace

std::string Table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    widths.reserve(headings.size());
    for (const auto& heading : headings) widths.push_back(Width(heading));
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    std::string table;
    AddRow(table, headings, widths);
    for (const auto& row : rows) AddRow(table, row, widths);
    return table;
}

}  // namespace zelvek::cli
