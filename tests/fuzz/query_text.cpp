// Query texts: whatever the values hold, decoding gives them back and no value becomes a parameter.
#include <algorithm>
#include <map>

#include "support/plain.h"
#include "support/target.h"
#include "vek/client.h"

namespace {

using Values = std::vector<std::string>;

bool IsUnreserved(unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~';
}

/// The characters that a value must not bring in.
std::string Structure(const std::string& text) {
    std::string structure;
    for (const char c : text) {
        if (!IsUnreserved(static_cast<unsigned char>(c)) && c != '%') structure += c;
    }
    return structure;
}

/// Any query text: its own characters stay, its first places are taken.
void HoldStructure(const std::string& text, const Values& values) {
    std::string rest = text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t place = rest.find('?');
        if (place != std::string::npos) rest.erase(place, 1);
    }
    fuzz::HoldEqual(Structure(vek_client::Bind(text, values)), Structure(rest),
                    "no value brings structure in");
    fuzz::HoldEqual(vek_client::Bind(text, Values()), text, "a text without values stays");
}

/// The decoded pairs of a query text, as a server reads them.
std::vector<std::pair<std::string, std::string>> Pairs(const std::string& query) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (std::size_t begin = 0; begin <= query.size();) {
        const std::size_t end = std::min(query.find('&', begin), query.size());
        const std::string pair = query.substr(begin, end - begin);
        const std::size_t equals = pair.find('=');
        fuzz::Hold(equals != std::string::npos && pair.find('=', equals + 1) == std::string::npos,
                   "a parameter has one equals sign");
        pairs.emplace_back(plain::PercentDecode(pair.substr(0, equals)),
                           plain::PercentDecode(pair.substr(equals + 1)));
        begin = end + 1;
    }
    return pairs;
}

void HoldPlaces(const Values& values) {
    std::string text = "func=f";
    for (std::size_t i = 0; i < values.size(); ++i) text += "&" + std::to_string(i) + "=?";
    const auto pairs = Pairs(vek_client::Bind(text, values));
    fuzz::Hold(pairs.size() == values.size() + 1, "there are as many parameters as the text has");
    for (std::size_t i = 0; i < values.size(); ++i) {
        fuzz::HoldEqual(pairs[i + 1].first, std::to_string(i), "the parameters keep their order");
        fuzz::HoldEqual(pairs[i + 1].second, values[i], "a value comes back");
    }
}

void HoldEntries(const std::map<std::string, std::string>& entries) {
    const std::string query = vek_client::Bind("func=?", entries);
    fuzz::Hold(query.starts_with("func=?"), "entries take no places");
    auto pairs = Pairs(query);
    pairs.erase(pairs.begin());
    fuzz::Hold(
        std::equal(pairs.begin(), pairs.end(), entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.first == b.first && a.second == b.second; }),
        "every entry comes back, in the order of the keys");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string text = TakeText(input);
    Values values;
    while (input.remaining_bytes() > 0 && values.size() < 16) values.push_back(TakeText(input));
    std::map<std::string, std::string> entries;
    for (std::size_t i = 0; i + 1 < values.size(); i += 2) entries[values[i]] = values[i + 1];
    HoldStructure(text, values);
    HoldPlaces(values);
    HoldEntries(entries);
}
