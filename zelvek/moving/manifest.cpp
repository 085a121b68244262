#include "zelvek/moving/manifest.h"

#include <json/json.h>

#include <exception>
#include <memory>
#include <vector>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/json_text.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"

namespace zelvek::moving {

namespace {

constexpr const char* kFolder = "certificates";
constexpr int kFormat = 1;

Json::Value Parsed(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value json;
    std::string complaints;
    if (!reader->parse(text.data(), text.data() + text.size(), &json, &complaints))
        throw Error(Code::kValue, "the backup's manifest cannot be read");
    return json;
}

Manifest FromJson(const Json::Value& json) {
    if (json["format"].asInt() != kFormat)
        throw Error(Code::kValue, "the backup has another format: a newer version of zelvek made it");
    Manifest manifest;
    manifest.version = Printable(json["version"].asString());
    manifest.time = vek_date::DateTime(json["time"].asString()).AsDateTime();
    manifest.jobs = json["jobs"].asInt64();
    manifest.domains = json["domains"].asInt64();
    manifest.certificates = json["certificates"].asInt64();
    const Json::Value& files = json["files"];
    for (const std::string& name : files.getMemberNames())
        manifest.files[name] = {files[name]["size"].asUInt64(), files[name]["sha256"].asString()};
    return manifest;
}

}  // namespace

std::string FileName(const install::InstalledName& name, const std::string& file) {
    return std::string(kFolder) + "/" + name.user + "/" + name.folder + "/" + file;
}

CertificateFile ReadFileName(const std::string& name) {
    const std::vector<std::string> parts = str::Split(name, "/");
    try {
        if (parts.size() == 4 && parts[0] == kFolder && (parts[3] == kChainFile || parts[3] == kKeyFile) &&
            names::FolderName("user", parts[1]) == parts[1] &&
            names::CertificateFolder(parts[2]) == parts[2] &&
            name == FileName({parts[1], parts[2]}, parts[3])) {
            return {{parts[1], parts[2]}, parts[3]};
        }
    } catch (const Error&) {
        // No folder has such a name.
    }
    throw Error(Code::kValue,
                "the backup is refused: no file in it may be named \"" + Printable(name) + "\"");
}

std::string Write(const Manifest& manifest) {
    Json::Value json;
    json["format"] = kFormat;
    json["version"] = manifest.version;
    json["time"] = manifest.time;
    json["jobs"] = static_cast<Json::Int64>(manifest.jobs);
    json["domains"] = static_cast<Json::Int64>(manifest.domains);
    json["certificates"] = static_cast<Json::Int64>(manifest.certificates);
    json["files"] = Json::objectValue;
    for (const auto& [name, file] : manifest.files) {
        json["files"][name]["size"] = static_cast<Json::UInt64>(file.size);
        json["files"][name]["sha256"] = file.sha256;
    }
    return JsonText(json) + "\n";
}

Manifest ReadManifest(const std::string& text) try { return FromJson(Parsed(text)); } catch (const Error&) {
    throw;
} catch (const std::exception&) {
    throw Error(Code::kValue, "the backup's manifest cannot be read");
}

}  // namespace zelvek::moving
