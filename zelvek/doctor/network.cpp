#include "zelvek/doctor/network.h"

#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iomanip>
#include <memory>
#include <optional>
#include <sstream>

#include "vek/date.h"
#include "vek/rpc.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/finding_state.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/site_look.h"
#include "zelvek/doctor/own_addresses.h"
#include "zelvek/doctor/parallel.h"
#include "zelvek/examination/public_address.h"
#include "zelvek/examination/public_dns.h"
#include "zelvek/examination/web_look.h"
#include "zelvek/notices/channels.h"
#include "zelvek/publishing/answers.h"

namespace zelvek::doctor {

namespace {

constexpr std::chrono::seconds kLimit{20};
constexpr std::size_t kMostBytes = 100'000;
constexpr std::size_t kRandomBytes = 16;
constexpr int kSuccess = 200;
const std::vector<std::string> kNoResolvers{"off"};

struct Fetched {
    int status = 0;
    std::string headers, body;
};

Fetched Fetch(const std::string& url) {
    vek_rpc::HttpQuery query;
    query.AcceptHeader();
    query.AcceptAnyResponse();
    query.Limit(kLimit, kMostBytes);
    std::ostringstream out;
    query.Get(url, out);
    const std::string text = out.str();
    const std::size_t end = std::min(text.find("\r\n\r\n"), text.size());
    return {query.Status(), text.substr(0, end), text.substr(std::min(end + 4, text.size()))};
}

/// The members that a run needs of a directory (RFC 8555 section 7.1.1) and that are not there.
std::string Missing(const std::string& body) {
    Json::Value read;
    std::string errors;
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        if (!reader->parse(body.data(), body.data() + body.size(), &read, &errors) || !read.isObject())
            return "it is no JSON object";
    } catch (const std::exception&) {
        return "it is no JSON object";
    }
    std::string missing;
    for (const char* member : {"newNonce", "newAccount", "newOrder"}) {
        if (!read[member].isString()) str::inpl::Append(missing, member, ", ");
    }
    return missing.empty() ? "" : "it has no " + missing;
}

/// The moment of "Date: Fri, 31 Dec 1999 23:59:59 GMT"; nothing where the headers have none.
std::optional<vek_date::DateTime> DateOf(const std::string& headers) {
    for (std::string line : str::Split(headers, "\r\n")) {
        const std::string name = str::GetWord(line, ':');
        if (str::Lower(name) != "date") continue;
        std::tm fields{};
        const std::string value = str::Trim(line);
        if (::strptime(value.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields) == nullptr) return std::nullopt;
        std::ostringstream moment;
        moment << std::put_time(&fields, "%Y-%m-%d %H:%M:%S");
        return vek_date::DateTime(moment.str());
    }
    return std::nullopt;
}

/// An answer file of our own, as long as this lives.
class ProbeFile {
public:
    explicit ProbeFile(std::filesystem::path folder)
        : folder_(std::move(folder)),
          token_("probe-" + str::hex::Encode(str::Random(kRandomBytes))),
          content_(str::hex::Encode(str::Random(kRandomBytes))) {
        answers::Create(folder_, token_, content_);
    }
    ~ProbeFile() {
        try {
            answers::Remove(folder_, token_);
        } catch (const std::exception&) {
            // What nobody has asked for does no harm.
        }
    }
    ProbeFile(const ProbeFile&) = delete;
    ProbeFile& operator=(const ProbeFile&) = delete;

    const std::string& token() const { return token_; }
    const std::string& content() const { return content_; }

private:
    std::filesystem::path folder_;
    std::string token_, content_;
};

Check AtAddress(const std::string& name, const std::string& address, const ProbeFile& probe) {
    const std::string about = "answers at " + name;
    const std::string where = name + " at " + address;
    if (!IsPublicAddress(address) && !IsOwnAddress(address))
        return Wrong(about, address + " means another host to everybody",
                     "give the name a public address, or prove it by dns-01");
    const WebLook look = LookAtAnswer(name, address, probe.token(), probe.content());
    if (look.state == finding_state::kThere) return Fine(about, where + " serves them");
    if (look.state == finding_state::kRedirect)
        return Note(about, where + " leads elsewhere, to " + look.detail,
                    "the authority follows; see that the "
                    "answers are served there");
    if (look.state == finding_state::kUnreached)
        return Wrong(about, where + ": " + look.detail,
                     "open port 80 to this server, or correct the address");
    return Wrong(about, where + " has something else: " + look.detail,
                 "have the web server serve the folder at /.well-known/acme-challenge/ for this site");
}

/// As public name servers have them, or, without these, as this machine does.
std::optional<std::vector<std::string>> AddressesOf(const std::string& name,
                                                    const std::optional<PublicDns>& dns) {
    constexpr std::size_t kMost = 8;
    if (dns) return dns->Addresses(name);
    std::vector<std::string> addresses;
    try {
        for (const Site& site : SitesOf(name, kMost)) addresses.push_back(site.address);
    } catch (const Error&) {
        // A name that is not known here has no address here.
    }
    return addresses;
}

Checks OfName(const std::string& name, const std::optional<PublicDns>& dns, const ProbeFile& probe) {
    const std::string about = "answers at " + name;
    const auto addresses = AddressesOf(name, dns);
    if (!addresses) return {Note(about, "no public name server has answered for " + name)};
    if (addresses->empty()) return {Wrong(about, name + " has no address", "add A and AAAA records")};
    Checks checks;
    for (const std::string& address : *addresses) checks.push_back(AtAddress(name, address, probe));
    return checks;
}

}  // namespace

Check Clock(const std::string& authority, long long ahead) {
    constexpr long long kAgrees = 60;  // seconds
    constexpr long long kHarmful = 3600;
    const std::string said = "this machine's clock is " + std::to_string(std::abs(ahead)) + " seconds " +
                             (ahead < 0 ? "behind" : "ahead of") + " that of " + authority;
    if (std::abs(ahead) <= kAgrees) return Fine("clock", "agrees with that of " + authority);
    const std::string help = "set the clock (timedatectl set-ntp true)";
    return std::abs(ahead) < kHarmful ? Note("clock", said, help) : Wrong("clock", said, help);
}

Checks Authority(const std::string& name, const std::string& directory) {
    const std::string about = "authority " + name;
    try {
        const Fetched answer = Fetch(directory);
        const std::string fault = answer.status == kSuccess
                                      ? Missing(answer.body)
                                      : "it has status " + std::to_string(answer.status);
        if (!fault.empty())
            return {Wrong(about, directory + " is no directory of an authority: " + fault,
                          "see whether the plug-in was built for the right URL")};
        Checks checks{Fine(about, directory)};
        if (const auto date = DateOf(answer.headers))
            checks.push_back(Clock(name, vek_date::DateTime().SecondsSince(*date)));
        return checks;
    } catch (const std::exception& error) {
        return {Wrong(
            about, WithoutControls(error.what(), ' '),
            "see whether this machine may make HTTPS connections, and whether it trusts the authority's "
            "certificate (ca-certificates, or VEK_CA_FILE)")};
    }
}

Checks Resolvers(const std::vector<std::string>& resolvers, const std::string& host) {
    if (resolvers == kNoResolvers)
        return {Note("public resolvers", "off", "without them nobody sees names as the authority does")};
    Checks checks;
    for (const std::string& resolver : resolvers) {
        const auto addresses = PublicDns({resolver}).Addresses(host);
        if (addresses && !addresses->empty()) {
            checks.push_back(Fine("resolver " + resolver, "finds " + host));
        } else {
            checks.push_back(Wrong("resolver " + resolver, "does not find " + host,
                                   "see whether port 53 is open to it, or name others (public-resolvers)"));
        }
    }
    return checks;
}

Check Records(dns::Backend& backend, const std::string& zone) {
    const std::string about = "records of " + zone;
    const std::string name = "_acme-challenge.zelvek-doctor." + zone;
    const std::string value = str::hex::Encode(str::Random(kRandomBytes));
    try {
        backend.AddTxt(zone, name, value);
        backend.RemoveTxt(zone, name, value);
        return Fine(about, "can be added and removed");
    } catch (const Error& error) {
        return Wrong(about, WithoutControls(error.what(), ' '),
                     "see docs/dns.md, and the options dns-... in zelvek.conf(5)");
    }
}

Checks Answers(const std::filesystem::path& folder, const std::vector<std::string>& names,
               const std::vector<std::string>& resolvers) try {
    if (names.empty()) return {};
    const ProbeFile probe(folder);
    std::optional<PublicDns> dns;
    if (resolvers != kNoResolvers) dns.emplace(resolvers);
    return InParallel(names, [&](const std::string& name) { return OfName(name, dns, probe); });
} catch (const Error& error) {
    return {Wrong("answers", error.what(), "see the check of the folder")};
}

Check Mail(const std::string& smtp, const std::filesystem::path& sendmail) {
    if (smtp.empty()) {
        if (::access(sendmail.c_str(), X_OK) == 0) return Fine("mail", sendmail.string());
        return Wrong("mail", "there is no program " + sendmail.string(),
                     "install a mail server, or name one with notify-smtp");
    }
    const std::string fault = notices::WhyNotReached(smtp, kLimit);
    if (fault.empty()) return Fine("mail", smtp + " answers");
    return Wrong("mail", smtp + ": " + WithoutControls(fault, ' '), "see notify-smtp in zelvek.conf(5)");
}

}  // namespace zelvek::doctor
