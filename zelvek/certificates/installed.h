#pragma once

#include <compare>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/certificates/install.h"

/// Installed certificates with their keys, for whoever takes them elsewhere.
namespace zelvek::install {

/// A user's folder and the name of a certificate in it, as it is installed: `Request::user` and, in its ASCII
/// form, `Request::certname`.
struct InstalledName {
    std::string user;
    std::string folder;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check misreads the comparison
    auto operator<=>(const InstalledName&) const = default;
};

/// PEM texts.
struct Installed {
    std::string certificates;  // leaf first
    std::string key;

    bool operator==(const Installed&) const = default;
};

/// What is installed, sorted. What else lies there is left out. Errors: Error of code kIo.
std::vector<InstalledName> InstalledNames(const Settings& settings);

/// Key and certificates of one installation, that belong together, though another one may take its place
/// meanwhile; nothing where there is none, or where key and certificates cannot be read or do not fit. Links
/// that lead elsewhere are not followed.
std::optional<Installed> ReadInstalled(const Settings& settings, const InstalledName& name);

}  // namespace zelvek::install
