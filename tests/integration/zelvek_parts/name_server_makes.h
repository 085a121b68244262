#pragma once

#include <string>
#include <vector>

namespace parts {

/// The name servers that the service is tried against.
enum class Make { kBind, kKnot, kPowerDns };

/// What a name server is told of its place.
struct Place {
    std::string folder;
    std::string key_file;  // the TSIG key "update", as tsig-keygen writes it
    int port;
};

/// Writes the configuration of a server and its zones into the folder; what was there before is written anew.
/// Returns the words of the command that runs it until it is killed.
std::vector<std::string> Prepare(Make make, const Place& place);

}  // namespace parts
