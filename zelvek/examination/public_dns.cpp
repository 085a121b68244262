#include "zelvek/examination/public_dns.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <utility>

#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"
#include "zelvek/examination/public_address.h"

namespace zelvek {

namespace {

using Texts = std::vector<std::string>;

constexpr std::chrono::seconds kDigLimit{6};  // dig's own limit is shorter
constexpr std::size_t kMost = 16;             // of what one answer holds

/// The response code in dig's line ";; ->>HEADER<<- opcode: QUERY, status: NOERROR, id: 1".
std::string ResponseCode(const std::string& output) {
    const std::string mark = "status: ";
    const std::size_t found = output.find(mark);
    if (found == std::string::npos) return "";
    const std::size_t begin = found + mark.size();
    return output.substr(begin, output.find_first_of(",\n", begin) - begin);
}

/// The data of the answer's records of a type, whatever aliases lead there.
Texts DataOf(const std::string& output, const std::string& type) {
    Texts found;
    for (const std::string& line : str::Split(output, "\n")) {
        std::istringstream fields(line);
        std::string owner, ttl, klass, kind, data;
        fields >> owner >> ttl >> klass >> kind >> std::ws;
        std::getline(fields, data);
        if (!owner.starts_with(';') && kind == type && found.size() < kMost) found.push_back(data);
    }
    return found;
}

/// Nothing, with the reason, where the server has not answered the question.
std::optional<Texts> Dig(const std::string& server, int port, const std::string& question,
                         const std::string& type, std::string& reason) {
    const std::string command = "dig -r @" + server + " -p " + str::Str(port) +
                                " +tries=1 +retry=0 +time=2 +noall +comments +answer " + question + " -t " +
                                type;
    const ToolRun run = RunTool(command, "", kDigLimit);
    const std::string code = run.status == 0 ? ResponseCode(run.output) : "";
    if (code == "NOERROR" || code == "NXDOMAIN") return DataOf(run.output, type);
    reason = code.empty() ? "no answer" : "the answer is " + Printable(code);
    return std::nullopt;
}

std::string Question(const std::string& name) { return "-q " + vek_proc::Escape(name + "."); }

bool IsHost(const std::string& name) {
    try {
        names::CheckDomain(name, false);
        return true;
    } catch (const Error&) {
        return false;
    }
}

void AddOnce(Texts& texts, const std::string& text) {
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(text);
}

}  // namespace

PublicDns::PublicDns(std::vector<std::string> resolvers, int port)
    : resolvers_(std::move(resolvers)), port_(port) {
    for (const std::string& resolver : resolvers_) {
        if (!IsAddress(resolver))
            throw Error(Code::kValue, "\"" + Printable(resolver) + "\" is no address of a name server");
    }
}

std::optional<Texts> PublicDns::Ask(const std::string& name, const std::string& type) const {
    std::string reason;
    if (!IsHost(name)) return std::nullopt;
    for (const std::string& resolver : resolvers_) {
        if (auto found = Dig(resolver, port_, Question(name), type, reason)) return found;
    }
    return std::nullopt;
}

std::optional<Texts> PublicDns::Addresses(const std::string& host) const {
    std::optional<Texts> addresses;
    for (const char* type : {"A", "AAAA"}) {
        const auto found = Ask(host, type);
        if (!found) continue;
        if (!addresses) addresses.emplace();
        for (const std::string& address : *found) {
            if (IsAddress(address)) AddOnce(*addresses, address);
        }
    }
    return addresses;
}

std::optional<Texts> PublicDns::NameServers(const std::string& zone) const {
    const auto found = Ask(zone, "NS");
    if (!found) return std::nullopt;
    Texts hosts;
    for (std::string host : *found) {
        if (host.ends_with('.')) host.pop_back();
        if (IsHost(host)) AddOnce(hosts, str::Lower(host));
    }
    return hosts;
}

std::optional<Texts> PublicDns::TxtAt(const std::string& server, const std::string& name,
                                      std::string& reason) const {
    reason = "not asked";
    if (!IsAddress(server) || !IsHost(name)) return std::nullopt;
    return Dig(server, port_, "+norecurse " + Question(name), "TXT", reason);
}

}  // namespace zelvek
