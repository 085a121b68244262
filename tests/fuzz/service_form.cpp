// What reaches the service as a form: what the client has written is what the service reads, and a token is
// no path.
#include <filesystem>

#include "support/plain.h"
#include "support/target.h"
#include "vek/client.h"
#include "zelvek/base/form.h"
#include "zelvek/publishing/answers.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

std::vector<std::string> Pieces(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator)
            pieces.emplace_back();
        else
            pieces.back() += c;
    }
    return pieces;
}

/// The pairs of any form, the first of each key.
Pairs FirstOfEach(const std::string& form) {
    Pairs pairs;
    for (const std::string& piece : Pieces(form, '&')) {
        if (piece.empty()) continue;
        const auto parts = Pieces(piece, '=');
        const std::string key = zelvek::FormDecode(parts[0]);
        const bool known =
            std::any_of(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first == key; });
        const std::string value = piece.substr(std::min(parts[0].size() + 1, piece.size()));
        if (!known) pairs.emplace_back(key, zelvek::FormDecode(value));
    }
    return pairs;
}

void HoldParameters(const std::string& form) {
    const zelvek::Parameters parameters(form);
    const Pairs pairs = FirstOfEach(form);
    fuzz::Hold(parameters.All() == pairs, "of each key the first value counts, in the order written");
    for (const auto& [key, value] : pairs)
        fuzz::Hold(parameters.Has(key) && parameters.Get(key) == value, "a parameter is found by its key");
}

void HoldDecoding(const std::string& text) {
    const std::string decoded = zelvek::FormDecode(text);
    fuzz::HoldEqual(zelvek::FormDecode(vek_client::Bind("?", std::vector<std::string>{text})), text,
                    "encoding is undone");
    fuzz::Hold(decoded.size() <= text.size() && decoded.size() * 3 >= text.size(),
               "three characters make one at most");
    if (text.find_first_of("%+") == std::string::npos)
        fuzz::HoldEqual(decoded, text, "other characters stay");
}

/// The framework's query texts: no value and no entry changes another parameter.
void HoldQuery(const std::string& value, const std::map<std::string, std::string>& entries) {
    using vek_client::Bind;
    const zelvek::Parameters parameters(Bind(Bind("func=f&a=?&", std::vector<std::string>{value}), entries));
    fuzz::HoldEqual(parameters.Get("func"), "f", "the query's function is the text's");
    fuzz::HoldEqual(parameters.Get("a"), value, "the query's value is the one given");
    const std::size_t taken = entries.count("func") + entries.count("a");
    fuzz::Hold(parameters.All().size() == 2 + entries.size() - taken, "every entry is one parameter");
    for (const auto& [key, entry] : entries)
        if (key != "func" && key != "a")
            fuzz::HoldEqual(parameters.Get(key), entry, "an entry is the one given");
}

void HoldToken(const std::string& text) {
    if (!zelvek::answers::IsToken(text)) return;
    const std::filesystem::path folder = "/srv/answers";
    const std::filesystem::path place = (folder / text).lexically_normal();
    fuzz::Hold(place.parent_path() == folder && place.filename() == text,
               "a token names a file of its folder");
    fuzz::Hold(
        text.size() <= 255 && text.find('.') == std::string::npos && text.find('\0') == std::string::npos,
        "a token is a file's whole name and no hidden one");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string value = TakeText(input);
    std::vector<std::string> texts{value};
    std::map<std::string, std::string> entries;
    for (int i = 0; i < 4 && input.remaining_bytes() > 0; ++i) {
        texts.push_back(TakeText(input));
        texts.push_back(TakeText(input));
        entries[texts[texts.size() - 2]] = texts.back();
    }
    for (const std::string& text : texts) {
        HoldParameters(text);
        HoldDecoding(text);
        HoldToken(text);
    }
    HoldParameters(plain::Join(texts, "&"));
    HoldQuery(value, entries);
}
