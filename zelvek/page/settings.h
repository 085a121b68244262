#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "zelvek/base/plugin_run.h"

/// The service's web page: what needs attention, before anybody asks. docs/page.md is for those who use it.
namespace zelvek::page {

struct Settings {
    std::string listen = {};  // "127.0.0.1:8443", or the path of a unix socket; empty: no page
    std::string url = {};     // the address that people open; empty: that of `listen`
    std::string peer =
        {};  // besides the service's own user and root, whose processes may connect to the socket
    std::string user_header = {};  // in which such a process says whose request it is; empty: it does not
    std::filesystem::path files = PluginBesideProgram().parent_path().parent_path() / "share/zelvek/page";
    std::chrono::seconds idle{1800};      // a session without anything done in it
    std::chrono::seconds longest{43200};  // a session
};

/// Whether it is a path of a unix socket.
bool IsSocketPath(const std::string& listen);

/// What `Settings` say of the address that people open.
struct Address {
    std::string url;   // with a "/" at the end
    std::string host;  // with its port, where that is not the usual one
    std::string path;  // begins and ends with "/"
    bool tls = false;
};

/// Errors: Error of code kValue for what is no address of a page.
Address AddressOf(const Settings& settings);

/// Errors: Error of code kValue for settings that cannot be used, such as an address that other machines
/// reach.
void CheckSettings(const Settings& settings);

}  // namespace zelvek::page
