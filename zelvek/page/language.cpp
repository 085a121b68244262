#include <algorithm>
#include <cstdlib>

#include "vek/str.h"
#include "zelvek/page/api.h"

namespace zelvek::page {

namespace {

/// The weight of "de;q=0.8"; 1 where none is said.
double WeightOf(const std::string& parameters) {
    const std::size_t at = parameters.find("q=");
    return at == std::string::npos ? 1 : std::strtod(parameters.c_str() + at + 2, nullptr);
}

}  // namespace

std::string ChosenLanguage(const std::string& accepted, const std::set<std::string>& there) {
    std::string best = "en";
    double weight = 0;
    for (std::string part : str::Split(accepted, ",")) {
        part.erase(0, part.find_first_not_of(' '));
        const std::size_t end = part.find_first_of("-; ");
        std::string language = part.substr(0, end);
        std::transform(language.begin(), language.end(), language.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (!there.contains(language) || WeightOf(part) <= weight) continue;
        best = language;
        weight = WeightOf(part);
    }
    return best;
}

}  // namespace zelvek::page
