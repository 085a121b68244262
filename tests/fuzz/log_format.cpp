// Log texts: places are filled in order, and what a value holds is never read as a format.
#include "support/plain.h"
#include "support/target.h"
#include "vek/log.h"

namespace {

/// The pieces of a format: "%%", "%s", "%d", or one character.
std::vector<std::string> Pieces(const std::string& format) {
    std::vector<std::string> pieces;
    for (std::size_t i = 0; i < format.size(); i += pieces.back().size()) {
        const std::string two = format.substr(i, 2);
        pieces.push_back(two == "%%" || two == "%s" || two == "%d" ? two : two.substr(0, 1));
    }
    return pieces;
}

std::string Filled(const std::string& format, std::vector<std::string> values) {
    std::string text;
    for (const std::string& piece : Pieces(format)) {
        if (piece == "%%") {
            text += '%';
        } else if (piece.size() == 2 && !values.empty()) {
            text += values.front();
            values.erase(values.begin());
        } else {
            text += piece;
        }
    }
    return text;
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const int number = input.ConsumeIntegral<int>();
    const std::string format = TakeText(input);
    const std::string a = TakeText(input);
    const std::string b = TakeText(input);
    HoldEqual(vek_log::Format(format, {}), Filled(format, {}), "places without values stay");
    HoldEqual(vek_log::Format(format, {a}), Filled(format, {a}), "one value takes the first place");
    HoldEqual(vek_log::Format(format, {a, number, b}), Filled(format, {a, std::to_string(number), b}),
              "values take the places in order");
    HoldEqual(vek_log::Format("[%s|%d|%s]", {a, number, b}),
              "[" + a + "|" + std::to_string(number) + "|" + b + "]", "a value stands as it is");
}
