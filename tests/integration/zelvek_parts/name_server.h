#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "integration/zelvek_parts/name_server_makes.h"
#include "unit/zelvek_parts/support.h"

namespace parts {

/// A port of the loopback address that is free for TCP and UDP just now.
int FreePort();

/// A TSIG key file as tsig-keygen writes it, for the owner alone.
std::filesystem::path WriteTsigKey(const std::filesystem::path& folder, const std::string& name);

/// A name server on a port of the loopback address, authoritative for the zones example.test, which takes
/// updates signed by one key, and static.test, which takes none.
class NameServer {
public:
    explicit NameServer(Make make = Make::kBind);
    ~NameServer();
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

    int port() const { return port_; }
    const std::filesystem::path& folder() const { return folder_.path(); }
    const std::filesystem::path& key() const { return key_; }

    /// What dig +short gives for the TXT records of a name, sorted lines.
    std::string Txt(const std::string& name) const;

    /// The time to live of the first TXT record of a name; empty without one.
    std::string Ttl(const std::string& name) const;

private:
    bool Start(std::vector<std::string> words);
    void Stop();
    bool Answers() const;
    std::string Dig(const std::string& arguments) const;

    TempFolder folder_;
    std::filesystem::path key_;
    int port_ = 0;
    pid_t pid_ = -1;
};

}  // namespace parts
