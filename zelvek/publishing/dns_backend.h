#pragma once

#include <memory>
#include <string>
#include <vector>

/// TXT records of the zones that this service may write.
namespace zelvek::dns {

/// Errors of `AddTxt` and `RemoveTxt`: Error of code kDns that says which server and why; of type
/// "value" for zones, names and values that can be none.
class Backend {
public:
    virtual ~Backend() = default;

    /// Whether this back end serves the zone (ASCII form, lower case, without final dot).
    virtual bool Serves(const std::string& zone) const = 0;

    /// Adds one value beside others at `name` (ASCII form, with or without final dot, inside `zone`).
    /// Type "exists" when just that value is there already.
    virtual void AddTxt(const std::string& zone, const std::string& name, const std::string& value) = 0;

    /// Removes just that value; one that is not there, or cannot be because `name` lies outside `zone`, is no
    /// error.
    virtual void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) = 0;
};

struct Settings {
    std::string server;  // host name or address; empty: no DNS back end
    int port = 53;
    std::string key_file;  // TSIG key as `tsig-keygen` writes it, readable by the service's user alone
    std::vector<std::string> zones;
    int ttl = 60;              // seconds
    std::string records_file;  // instead of a server: records are kept as lines of this file, for machines
                               // without DNS
};

/// Null without server and file. Errors: Error of code kValue for settings that cannot be used.
std::unique_ptr<Backend> MakeBackend(const Settings& settings);

}  // namespace zelvek::dns
