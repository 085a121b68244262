#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zelvek {

/// The DNS as others see it, by the tool `dig`. Names are in the canonical form; one question takes at most a
/// few seconds for each server that is asked.
class PublicDns {
public:
    /// `resolvers`: addresses of public name servers, asked one after the other until one answers. Errors:
    /// Error of code kValue for what is no address.
    explicit PublicDns(std::vector<std::string> resolvers, int port = 53);

    /// The host's addresses, each once; nothing where no resolver has answered.
    std::optional<std::vector<std::string>> Addresses(const std::string& host) const;

    /// The hosts that a zone's name servers are; nothing where no resolver has answered.
    std::optional<std::vector<std::string>> NameServers(const std::string& zone) const;

    /// The TXT records of a name as this very server has them, each in quotes as zone files write them;
    /// nothing, with the reason in `reason`, where it has not answered.
    std::optional<std::vector<std::string>> TxtAt(const std::string& server, const std::string& name,
                                                  std::string& reason) const;

private:
    std::optional<std::vector<std::string>> Ask(const std::string& name, const std::string& type) const;

    std::vector<std::string> resolvers_;
    int port_;
};

}  // namespace zelvek
