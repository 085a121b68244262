#include "zelvek/base/authority.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include "zelvek/base/config_file.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/base/text.h"

namespace zelvek::authorities {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestName = 200;
constexpr const char* kEnding = ".conf";

bool IsInName(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; }

bool CanBeStarted(const fs::path& plugin) {
    std::error_code error;
    return fs::is_regular_file(plugin, error) && ::access(plugin.c_str(), X_OK) == 0;
}

/// Errors: Error of code kIo, kValue.
Authority Read(const std::string& name, const fs::path& file) {
    std::map<std::string, std::string> values;
    for (const ConfigLine& line : ReadConfigFile(file)) values[line.name] = line.value;
    Authority authority{name, values["directory"], values["style"]};
    if (!authority.directory.starts_with("https://"))
        throw Error(Code::kValue, file.string() + ": \"directory\" is no https URL");
    if (authority.style != "classic" && authority.style != "rfc8555")
        throw Error(Code::kValue, file.string() + ": \"style\" is neither classic nor rfc8555");
    return authority;
}

/// Nothing where there is no sound description of it.
std::optional<Authority> Described(const Places& places, const std::string& name) {
    if (!IsName(name) || name == kFirst) return std::nullopt;
    const fs::path file = places.descriptions / (name + kEnding);
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return std::nullopt;
    try {
        return Read(name, file);
    } catch (const Error& reason) {
        Log(std::string("an authority's description: ") + reason.what());
        return std::nullopt;
    }
}

/// Nothing for a plug-in that is not described, or cannot be started.
std::optional<Authority> Other(const Places& places, const std::string& name) {
    auto authority = Described(places, name);
    return authority && CanBeStarted(PluginOf(places.plugin, name)) ? std::move(authority) : std::nullopt;
}

/// Another plug-in may have been put in the place of the one that this program was built with.
Authority First(const Places& places) {
    const auto described = Described(places, places.plugin.filename());
    if (described) return {kFirst, described->directory, described->style};
    return {kFirst, AMBRIN_DIRECTORY_URL, AMBRIN_STYLE};
}

}  // namespace

fs::path DescriptionsOfProgram() {
    return PluginBesideProgram().parent_path().parent_path() / "share/zelvek/authorities";
}

bool IsName(const std::string& text) {
    return !text.empty() && text.size() <= kLongestName && std::all_of(text.begin(), text.end(), &IsInName);
}

fs::path PluginOf(const fs::path& first, const std::string& name) {
    if (!IsName(name)) throw Error(Code::kValue, "\"" + Printable(name) + "\" is no authority's name");
    return name == kFirst ? first : first.parent_path() / name;
}

std::vector<Authority> All(const Places& places) {
    std::vector<Authority> all;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(places.descriptions, error)) {
        if (entry.path().extension() != kEnding) continue;
        if (auto authority = Other(places, entry.path().stem())) all.push_back(*std::move(authority));
    }
    std::sort(all.begin(), all.end(),
              [](const auto& one, const auto& other) { return one.name < other.name; });
    all.insert(all.begin(), First(places));
    return all;
}

std::optional<Authority> Find(const Places& places, const std::string& name) {
    return name == kFirst ? First(places) : Other(places, name);
}

}  // namespace zelvek::authorities
