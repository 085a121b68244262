// TXT records in the zones of users.
#include <set>

#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/publications.h"

namespace zelvek {

namespace {

constexpr std::size_t kMaxTxt = 255;  // bytes, one character-string (RFC 1035 section 3.3)

struct Record {
    std::string user, name, value;
};

Record Checked(const std::string& user, const std::string& name, const std::string& value) {
    names::CheckUser(user);
    Record record{user, names::Canonical(name, "name"), value};
    names::CheckDomain(record.name, false);
    names::CheckText("value", value);
    if (value.empty() || value.size() > kMaxTxt) {
        throw Error(Code::kValue, "value", "", "the text of a record has 1 to 255 bytes");
    }
    return record;
}

/// The user's own zone to write the record into: the longest one that holds the name. A program names its
/// main domain's zone for every record, also for names that another zone of the user holds, or one cut out of
/// it. Empty when the user has none.
std::string ChooseZone(Services& services, const Record& record) {
    std::vector<std::string> zones;
    const auto records = services.publisher.records();
    Transaction transaction(services.store);
    for (const auto& domain : domains::Of(transaction, record.user)) {
        if (records != nullptr && records->Serves(domain.ascii)) zones.push_back(domain.ascii);
    }
    const auto holding = names::ZonesContaining(zones, record.name);
    return holding.empty() ? "" : holding.front();
}

/// Where we have published the record already, else the user's zone for it. Each once, however many jobs have
/// published there: a job withdraws for itself alone, and only once.
std::set<std::string> ZonesOf(Services& services, const Record& record) {
    std::set<std::string> zones;
    {
        Transaction transaction(services.store);
        for (const auto& entry :
             publications::RecordsOf(transaction, record.user, record.name, record.value)) {
            zones.insert(entry.item.zone);
        }
    }
    if (!zones.empty()) return zones;
    const std::string zone = ChooseZone(services, record);
    if (!zone.empty()) zones.insert(zone);
    return zones;
}

void CheckType(const Query& query) {
    const std::string& type = query.parameters.Get("rtype");
    if (type != "txt")
        throw Error(Code::kValue, "rtype", type, "records of type \"" + type + "\" are not served");
}

void EditRecord(Services& services, const Query& query, XmlAnswer&) {
    CheckType(query);
    const Record record =
        Checked(query.parameters.Get("su"), query.parameters.Get("name"), query.parameters.Get("value"));
    if (services.publisher.records() == nullptr) {
        throw Error(Code::kDns, "domain.record", record.name,
                    "no DNS back end is configured, so no record can be made");
    }
    const std::string asked = names::Canonical(query.parameters.Get("plid"), "plid");
    const std::string zone = ChooseZone(services, record);
    if (zone.empty()) {
        throw Error(Code::kMissed, "domain", asked,
                    "user " + record.user + " has no zone that holds " + record.name);
    }
    services.publisher.Publish(query.caller, record.user, {zone, record.name, record.value}, "");
}

void DeleteRecord(Services& services, const Query& query, XmlAnswer&) {
    CheckType(query);
    const std::string key = query.parameters.Get("elid");
    const std::string separator = " TXT  ";
    const std::size_t at = key.find(separator);
    if (at == std::string::npos)
        throw Error(Code::kValue, "elid", key, "\"" + key + "\" is no key of a TXT record");

    const Record record =
        Checked(query.parameters.Get("su"), key.substr(0, at), key.substr(at + separator.size()));
    for (const std::string& zone : ZonesOf(services, record)) {
        services.publisher.Withdraw(query.caller, {zone, record.name, record.value});
    }
}

}  // namespace

Functions functions::Records() {
    return {{"domain.record.edit", Right::kOwn, &EditRecord},
            {"domain.record.delete", Right::kOwn, &DeleteRecord}};
}

}  // namespace zelvek
