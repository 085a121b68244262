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

using Row = std::vector<std::string>;

Row Shown(const Row& cells) {
    Row shown;
    shown.reserve(cells.size());
    for (const std::string& cell : cells) shown.push_back(WithoutControls(cell, kBlank));
    return shown;
}

void AddRow(std::string& table, const Row& cells, const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += cells[i];
        if (i + 1 < cells.size()) line.append(widths[i] - Width(cells[i]) + kGap, kBlank);
    }
    line.erase(line.find_last_not_of(kBlank) + 1);
    table += line + "\n";
}

}  // namespace

std::string Table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows) {
    std::vector<Row> shown{Shown(headings)};
    for (const Row& row : rows) shown.push_back(Shown(row));
    std::vector<std::size_t> widths(headings.size());
    for (const Row& row : shown) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    std::string table;
    for (const Row& row : shown) AddRow(table, row, widths);
    return table;
}

}  // namespace zelvek::cli
