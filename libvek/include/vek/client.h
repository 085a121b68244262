#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vek/xml.h"

/// Queries to a local service over its unix socket.
namespace vek_client {

/// A user of this machine, as the system numbers them.
using UserId = unsigned;

/// A service's answer.
class Result {
public:
    /// From the body of an answer. Errors: the error that the answer reports; type "protocol" for a body that
    /// is no answer ("doc" element).
    explicit Result(const std::string& body);

    /// The text of /doc/key; empty when there is none.
    std::string value(const std::string& key) const;

    /// The whole answer, for lists.
    const vek_xml::Xml& xml() const { return xml_; }

private:
    vek_xml::Xml xml_;
};

/// `text` with each "?" replaced by the next value, percent-encoded. A "?" beyond the values stays itself,
/// and so does one inside a value; values beyond the places are dropped.
std::string Bind(const std::string& text, const std::vector<std::string>& values);

/// `text` followed by the entries as "&key=value" in key order, both percent-encoded.
std::string Bind(const std::string& text, const std::map<std::string, std::string>& entries);

/// Errors of every query: vek_err::Error of the answer's type; of type "connect" when the service cannot be
/// reached, "protocol" when its answer cannot be read. A query that finds nobody, whose connection breaks
/// off, or that the service cannot carry out for the moment is sent again with the identity that it has: for
/// five minutes one that stores something ("sok=ok"), for five seconds any other. A client that has waited
/// for its service in vain and never found it has read nothing that could be lost: it tries once then.
class Client {
public:
    /// One query; the values take the places of the text's "?" in their order.
    template <class... Values>
    Result Query(const std::string& text, const std::string& value, const Values&... values) const {
        return Send(Bind(text, std::vector<std::string>{value, values...}));
    }

    /// One query with every entry of the map as a further parameter.
    Result Query(const std::string& text, const std::map<std::string, std::string>& entries) const {
        return Send(Bind(text, entries));
    }

    Result Query(const std::string& text) const { return Send(text); }

protected:
    Client(std::string service, std::string module, std::optional<UserId> service_user);

private:
    Result Send(const std::string& query) const;

    std::string service_;
    std::string module_;
    [[maybe_unused]] std::optional<UserId> service_user_;

    enum class Found { kUnknown, kInVain, kYes };
    [[maybe_unused]] mutable Found found_ = Found::kUnknown;  // looked at as an atomic: threads share clients
};

/// The client of a service on this machine: `$VEK_RUN_DIR/<service>.sock`. `module` is the caller's name. A
/// service of another user than this process's is told nothing.
class Local : public Client {
public:
    Local(std::string service, std::string module) : Local(std::move(service), std::move(module), {}) {}

    /// Asks a service of that user, too. What is told to it, that user learns: who says whose service it is
    /// has seen that nobody else can put a socket there.
    Local(std::string service, std::string module, std::optional<UserId> service_user)
        : Client(std::move(service), std::move(module), service_user) {}
};

}  // namespace vek_client
