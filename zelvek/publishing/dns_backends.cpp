#include "zelvek/publishing/dns_backends.h"

#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::dns {
namespace {

bool IsSelected(const BackendKind& kind, const Settings& given) {
    const auto selecting = given.find(kind.options.front().name);
    return selecting != given.end() && !std::get<std::string>(selecting->second).empty();
}

void CheckRange(const Option& option, const OptionValue& value) {
    const int* number = std::get_if<int>(&value);
    if (number == nullptr || (*number >= option.least && *number <= option.most)) return;
    throw Error(Code::kValue, option.name + " is no number from " + str::Str(option.least) + " to " +
                                  str::Str(option.most));
}

/// A value for every option of the kind.
Settings Complete(const BackendKind& kind, const Settings& given) {
    Settings settings;
    for (const Option& option : kind.options) {
        const auto found = given.find(option.name);
        const OptionValue& value = found == given.end() ? option.standard : found->second;
        CheckRange(option, value);
        settings.emplace(option.name, value);
    }
    return settings;
}

}  // namespace

std::vector<BackendKind> BackendKinds() {
    std::vector<BackendKind> kinds;
    kinds.reserve(kEveryKind.size());
    for (const auto& kind : kEveryKind) kinds.push_back(kind());
    return kinds;
}

std::unique_ptr<Backend> MakeBackend(const Settings& given, const std::vector<BackendKind>& kinds) {
    const BackendKind* selected = nullptr;
    for (const BackendKind& kind : kinds) {
        if (!IsSelected(kind, given)) continue;
        if (selected != nullptr) {
            throw Error(Code::kValue, selected->title + " and " + kind.title + " exclude each other");
        }
        selected = &kind;
    }
    return selected == nullptr ? nullptr : selected->make(Complete(*selected, given));
}

std::string SelectingOptions() {
    std::string options;
    for (const BackendKind& kind : BackendKinds()) {
        str::inpl::Append(options, "--" + kind.options.front().name, " or ");
    }
    return options;
}

}  // namespace zelvek::dns
