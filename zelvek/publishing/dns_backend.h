#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zelvek::dns {

/// A place for the TXT records of dns-01, such as a name server. dns_backends.h has the kinds that there are.
/// Errors of `AddTxt` and `RemoveTxt`: Error of code kDns that says which server and why; of code
/// kUnavailable for what may be over in a while (no answer, a refused connection, SERVFAIL); of code kValue
/// for texts that can be no zone, name or value.
class Backend {
public:
    virtual ~Backend() = default;

    /// Whether records of this zone can be written (ASCII form, lower case, without final dot).
    virtual bool Serves(const std::string& zone) const = 0;

    /// The zones that were named to it; none where it takes every zone.
    virtual std::vector<std::string> Zones() const { return {}; }

    /// Adds one value beside others at `name` (ASCII form, with or without final dot, inside `zone`).
    /// Code kExists when just that value is there already, of a back end that can tell.
    virtual void AddTxt(const std::string& zone, const std::string& name, const std::string& value) = 0;

    /// Removes just that value; one that is not there, or cannot be because `name` lies outside `zone`, is no
    /// error.
    virtual void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) = 0;

    /// How long name servers elsewhere may go on saying that a record of this zone is not there, because
    /// somebody has asked for it too early (RFC 2308 section 5). Errors: those of `AddTxt`.
    virtual std::chrono::seconds NegativeTtl(const std::string& /*zone*/) { return std::chrono::seconds{0}; }
};

}  // namespace zelvek::dns
