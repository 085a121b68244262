#include <json/json.h>

#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"
#include "zelvek/records/next_step.h"

namespace zelvek::cli {

namespace {

struct CertificateListOptions {
    PlacedPart part;
    std::string user;
    bool json = false;
};

Json::Value CertificateJson(const vek_xml::Node& certificate) {
    Json::Value json;
    json["job"] = str::Int(certificate.Value("id"));
    for (const char* key : {"certname", "user_name", "path", "issuer", "key_kind", "served", "served_detail"})
        json[key] = certificate.Value(key);
    for (const char* key : {"from", "expires", "served_time"}) json[key] = TimeJson(certificate.Value(key));
    json["key_size"] = str::Int(certificate.Value("key_size"));
    json["readable"] = certificate.Value("readable") == "on";
    json["names"] = Json::arrayValue;
    for (const std::string& name : str::Split(certificate.Value("names"), " ")) json["names"].append(name);
    return json;
}

std::vector<std::string> CertificateRow(const vek_xml::Node& certificate) {
    const bool readable = certificate.Value("readable") == "on";
    const std::string path = certificate.Value("path");
    return {certificate.Value("id"),
            certificate.Value("certname"),
            certificate.Value("user_name"),
            records::DayOf(certificate.Value("expires")),
            str::Append(certificate.Value("key_kind"), certificate.Value("key_size"), " "),
            certificate.Value("served"),
            certificate.Value("issuer"),
            readable       ? certificate.Value("names") + " in " + path
            : path.empty() ? "no certificate can have this name"
                           : "no readable certificate in " + path};
}

int ListCertificates(const CertificateListOptions& options) {
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        if (!options.user.empty()) parameters["user_name"] = options.user;
        return Ask("zelvek.certificate.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachPlaced(ask, options.part, [&](const vek_xml::Node& certificate) {
        if (options.json) {
            json.append(CertificateJson(certificate));
        } else {
            rows.push_back(CertificateRow(certificate));
        }
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable(
            {"JOB", "CERTIFICATE", "USER", "EXPIRES", "KEY", "SERVED", "ISSUER", "NAMES AND PLACE"}, rows);
    }
    return kSuccess;
}

}  // namespace

void AddCertificateCommands(Command& root) {
    Command noun = root.AddGroup("certificate", "Installed certificates");
    const auto options = std::make_shared<CertificateListOptions>();
    Command list = noun.AddCommand("list", "Shows them, those that end next first",
                                   [options] { return ListCertificates(*options); });
    AddJsonFlag(list, options->json);
    list.AddOption("--limit", options->part.limit, "At most so many").Positive();
    list.AddOption("--after", options->part.after, "Only those that stand after this job's");
    list.AddOption("--user", options->user, "Of this user alone");
}

}  // namespace zelvek::cli
