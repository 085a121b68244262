#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/publishing/dns_record.h"
#include "zelvek/publishing/tsig_key_file.h"

namespace zelvek::dns {
namespace {

// The tools get shorter limits by their options; these end a tool that does not keep to its own.
constexpr std::chrono::seconds kQueryLimit{15};
constexpr std::chrono::seconds kUpdateLimit{30};

constexpr int kNoReply = 9;  // dig's exit status
constexpr const char* kServerFailure =
    "SERVFAIL";  // the response code of trouble inside the server (RFC 1035)

/// The response code that dig shows in its line ";; ->>HEADER<<- opcode: QUERY, status: NOERROR, id: 1".
std::string ResponseCode(const std::string& output) {
    constexpr std::string_view mark = "status: ";
    const std::size_t found = output.find(mark);
    if (found == std::string::npos) return "";
    const std::size_t begin = found + mark.size();
    return output.substr(begin, output.find_first_of(",\n", begin) - begin);
}

struct Answer {
    bool alias = false;
    std::set<std::string> values;  // in quotes, as zone files have them
};

/// What the lines of dig's answer, "name ttl IN type data", say of just this name.
Answer ReadAnswer(const std::string& output, const std::string& name) {
    Answer answer;
    for (const std::string& line : str::Split(output, "\n")) {
        std::istringstream fields(line);
        std::string owner, ttl, klass, type, data;
        fields >> owner >> ttl >> klass >> type >> std::ws;
        std::getline(fields, data);
        if (str::Lower(owner) != name + ".") continue;
        if (type == "CNAME") answer.alias = true;
        if (type == "TXT") answer.values.insert(data);
    }
    return answer;
}

/// The smaller of the SOA record's own time and its last field. Without such a record nothing is kept.
std::chrono::seconds NegativeTtlIn(const std::string& output, const std::string& zone) {
    for (const std::string& line : str::Split(output, "\n")) {
        std::istringstream fields(line);
        std::string owner, klass, type, server, person;
        long long ttl = 0, serial = 0, refresh = 0, retry = 0, expire = 0, minimum = 0;
        fields >> owner >> ttl >> klass >> type >> server >> person >> serial >> refresh >> retry >> expire >>
            minimum;
        if (fields && str::Lower(owner) == zone + "." && type == "SOA")
            return std::chrono::seconds{std::min(ttl, minimum)};
    }
    return std::chrono::seconds{0};
}

struct Server {
    std::string host;  // name or address
    int port = 0;
    std::string key_file;  // TSIG key as `tsig-keygen` writes it, readable by the service's user alone
    int ttl = 0;           // of new records, in seconds

    std::string Address() const {
        const bool ipv6 = host.find(':') != std::string::npos;
        return (ipv6 ? "[" + host + "]" : host) + ":" + str::Str(port);
    }
};

class UpdateClient : public Backend {
public:
    UpdateClient(Server server, std::set<std::string> zones)
        : server_(std::move(server)), zones_(std::move(zones)) {}

    bool Serves(const std::string& zone) const override { return zones_.count(zone) != 0; }
    std::vector<std::string> Zones() const override { return {zones_.begin(), zones_.end()}; }

    void AddTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        const Record record = CheckedNewRecord(zone, name, value);
        const Answer answer = Ask(record);
        if (answer.values.count(Quoted(value)) != 0) {
            throw Error(Code::kExists, "the TXT record of " + record.name + " is there already");
        }
        // The server would skip such an addition, and report success (RFC 2136 section 3.4.2.2).
        if (answer.alias) Fail(record.name + " is an alias (CNAME), beside which no TXT record can stand");
        Update(record,
               "update add " + record.name + ". " + str::Str(server_.ttl) + " IN TXT " + Quoted(value));
    }

    void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        const Record record = CheckedRecord(zone, name, value);
        if (!record.IsInZone() || Ask(record).values.count(Quoted(value)) == 0) return;
        Update(record, "update delete " + record.name + ". IN TXT " + Quoted(value));
    }

    std::chrono::seconds NegativeTtl(const std::string& zone) override {
        return NegativeTtlIn(Query(zone, "SOA"), zone);
    }

private:
    /// For what only a person can mend.
    [[noreturn]] void Fail(const std::string& reason) const {
        throw Error(Code::kDns, "DNS server " + server_.Address() + ": " + reason);
    }

    /// For what may be over in a while.
    [[noreturn]] void GiveUpForNow(const std::string& reason) const {
        throw Error(Code::kUnavailable, "DNS server " + server_.Address() + ": " + reason);
    }

    void RequireServed(const Record& record) const {
        if (!Serves(record.zone)) Fail("the zone " + record.zone + " is not among those that may be written");
    }

    Answer Ask(const Record& record) const {
        RequireServed(record);
        return ReadAnswer(Query(record.name, "TXT"), record.name);
    }

    /// What dig shows of the server's own answer. A server may show different records to different keys, so
    /// the query has the key with which the records are changed.
    std::string Query(const std::string& name, const std::string& type) const {
        CheckTsigKeyFile(server_.key_file);
        const std::string command = "dig -r -k " + vek_proc::Escape(server_.key_file) + " @" + server_.host +
                                    " -p " + str::Str(server_.port) + " -t " + type + " -q " +
                                    vek_proc::Escape(name + ".") +
                                    " +tcp +norecurse +time=5 +tries=1 +retry=0 +noall +comments +answer";
        const ToolRun run = RunTool(command, "", kQueryLimit);
        if (run.timed_out || run.status == kNoReply) GiveUpForNow(Reason(run));
        if (run.status != 0) Fail(Reason(run));
        const std::string code = ResponseCode(run.output);
        if (code == "NOTAUTH") Fail("the key is refused (NOTAUTH)");
        if (code == "NOERROR" || code == "NXDOMAIN") return run.output;
        if (code == kServerFailure) GiveUpForNow("the query for " + name + " is answered with " + code);
        Fail("the query for " + name + " is answered with " + code);
    }

    /// Sends one change. nsupdate reads it from its standard input; its command line has the key file alone.
    void Update(const Record& record, const std::string& change) const {
        const std::string commands = "server " + server_.host + " " + str::Str(server_.port) + "\nzone " +
                                     record.zone + ".\n" + change + "\nsend\nquit\n";
        const std::string command = "nsupdate -v -t 10 -r 1 -k " + vek_proc::Escape(server_.key_file);
        const ToolRun run = RunTool(command, commands, kUpdateLimit);
        if (run.status == 0) return;
        const std::string failure = "the zone " + record.zone + " cannot be changed: " + Reason(run);
        if (run.timed_out || run.output.find(kServerFailure) != std::string::npos) GiveUpForNow(failure);
        Ask(record);  // ends this where the server does not answer any more
        Fail(failure);
    }

    static std::string Reason(const ToolRun& run) {
        if (run.timed_out) return "no answer in time";
        return str::Append(LastLines(run.output), "(status " + str::Str(run.status) + ")", " ");
    }

    Server server_;
    std::set<std::string> zones_;
};

bool IsHost(const std::string& text) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.:-";
    return text.front() != '-' && text.find_first_not_of(kAlphabet) == std::string::npos;
}

constexpr const char* kServer = "dns-server";
constexpr const char* kPort = "dns-port";
constexpr const char* kKeyFile = "dns-key-file";
constexpr const char* kZone = "dns-zone";
constexpr const char* kTtl = "dns-ttl";

std::unique_ptr<Backend> MakeUpdates(const Settings& settings) {
    const Server server{std::get<std::string>(settings.at(kServer)), std::get<int>(settings.at(kPort)),
                        std::get<std::string>(settings.at(kKeyFile)), std::get<int>(settings.at(kTtl))};
    if (!IsHost(server.host)) throw Error(Code::kValue, "the DNS server is no host name or address");
    const auto zones = CheckedNames(std::get<std::vector<std::string>>(settings.at(kZone)));
    if (zones.empty()) throw Error(Code::kValue, "the DNS server has no zone that may be written");
    CheckTsigKeyFile(server.key_file);
    return std::make_unique<UpdateClient>(server, zones);
}

}  // namespace

BackendKind DynamicUpdate() {
    return {"a DNS server",
            {{kServer, "Server that takes dynamic updates", std::string()},
             {kPort, "Its port", 53, 1, 65535},
             {kKeyFile, "TSIG key, as tsig-keygen writes it", std::string()},
             {kZone, "A zone on that server; repeatable", std::vector<std::string>()},
             {kTtl, "Seconds that records may be cached", 60, 0, 86400}},
            &MakeUpdates};
}

}  // namespace zelvek::dns
