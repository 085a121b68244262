#pragma once

#include <any>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace zelvek {

/// When a service that runs goes by another value of an option.
enum class Effect {
    kAtOnce,       // of a command that ends
    kAtReload,     // when it reads its options again
    kAtNextStart,  // what it was started with stays in use
};

/// The variables to which a command's options are written, by the names of the options ("--user"). They live
/// as long as this is used.
class OptionValues {
public:
    template <class Value>
    void Add(const std::string& name, Value& value) {
        options_[name] = {
            Effect::kAtOnce, [&value] { return std::any(value); },
            [&value](const std::any& other) { value = std::any_cast<const Value&>(other); },
            [&value](const std::any& other) { return value == std::any_cast<const Value&>(other); }};
    }

    void SetEffect(const std::string& name, Effect effect) { options_.at(name).effect = effect; }

    /// The options of this effect, without "--", whose values are others there. `other` has the same options.
    std::vector<std::string> Differing(Effect effect, const OptionValues& other) const;

    /// The options of this effect get the values that they have there.
    void Take(Effect effect, const OptionValues& other);

private:
    struct Option {
        Effect effect = Effect::kAtOnce;
        std::function<std::any()> get;
        std::function<void(const std::any&)> set;
        std::function<bool(const std::any&)> is;
    };

    std::map<std::string, Option> options_;
};

}  // namespace zelvek
