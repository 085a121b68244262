#include "zelvek/base/option_values.h"

namespace zelvek {

std::vector<std::string> OptionValues::Differing(Effect effect, const OptionValues& other) const {
    std::vector<std::string> names;
    for (const auto& [name, option] : options_) {
        if (option.effect == effect && !option.is(other.options_.at(name).get()))
            names.push_back(name.substr(2));
    }
    return names;
}

void OptionValues::Take(Effect effect, const OptionValues& other) {
    for (const auto& [name, option] : options_) {
        if (option.effect == effect) option.set(other.options_.at(name).get());
    }
}

}  // namespace zelvek
