#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// The authorities that plug-ins were built for. A run takes no options, so each authority has a plug-in of
/// its own, and is called by the name of that one's file.
namespace zelvek::authorities {

/// The one that is always there, with its plug-in; older versions had no other.
inline constexpr const char* kFirst = "ambrin";

struct Authority {
    std::string name;
    std::string directory;  // the URL of its directory (RFC 8555 section 7.1.1)
    std::string style;      // how it is spoken to: "classic" or "rfc8555"

    bool operator==(const Authority&) const = default;
};

/// What the build and the installation have left.
struct Places {
    std::filesystem::path plugin;  // the first one's, whatever its file's name; the others lie beside it
    std::filesystem::path descriptions;  // a file NAME.conf for each other one: its directory and its style
};

/// Where the build puts the descriptions, and the installation.
std::filesystem::path DescriptionsOfProgram();

/// Whether a plug-in may have this name: "[a-z0-9-]+", not longer than a file's name.
bool IsName(const std::string& text);

/// The plug-in of this name beside the first one. Errors: Error of code kValue for what is no name.
std::filesystem::path PluginOf(const std::filesystem::path& first, const std::string& name);

/// Those whose plug-ins can be started, the first one at the beginning, the others by name. A description
/// that says something else is left out, and logged.
std::vector<Authority> All(const Places& places);

/// The one of this name among them.
std::optional<Authority> Find(const Places& places, const std::string& name);

}  // namespace zelvek::authorities
