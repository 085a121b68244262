#include "zelvek/cli/import_sources.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <system_error>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestFile = 256UL << 10;
constexpr std::size_t kNumberDigits = 4;  // of "shop.example-0001"

/// The content; `obstacle` says why there is none.
std::string Read(const fs::path& file, std::string& obstacle) {
    std::error_code error;
    // The newest version of a certificate is reached by a link.
    const fs::path real = fs::canonical(file, error);
    if (error) {
        obstacle = file.string() + ": " + error.message();
        return "";
    }
    const auto content = ReadSmallFile(real, kLargestFile);
    if (!content) obstacle = file.string() + " cannot be read: run the command as root";
    return content.value_or("");
}

/// The PEM blocks (RFC 7468) whose labels are wanted, one after the other, without what stands between them.
std::string Blocks(const std::string& text, const std::function<bool(const std::string&)>& wanted) {
    static const std::string begin = "-----BEGIN ";
    static const std::string dashes = "-----";
    std::string blocks;
    for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1)) {
        const std::size_t label_at = at + begin.size();
        const std::size_t label_end = text.find(dashes, label_at);
        if (label_end == std::string::npos) break;
        const std::string label = text.substr(label_at, label_end - label_at);
        std::string end = "-----END ";
        end.append(label).append(dashes);
        const std::size_t end_at = text.find(end, label_end);
        if (end_at == std::string::npos || !wanted(label)) continue;
        blocks += text.substr(at, end_at + end.size() - at) + "\n";
    }
    return blocks;
}

std::string CertificatesIn(const fs::path& file, std::string& obstacle) {
    std::string blocks =
        Blocks(Read(file, obstacle), [](const std::string& label) { return label == "CERTIFICATE"; });
    if (blocks.empty() && obstacle.empty())
        obstacle = file.string() + " holds no certificate (\"BEGIN CERTIFICATE\")";
    return blocks;
}

std::string KeyIn(const fs::path& file, std::string& obstacle) {
    std::string blocks =
        Blocks(Read(file, obstacle), [](const std::string& label) { return label.ends_with("PRIVATE KEY"); });
    if (blocks.empty() && obstacle.empty())
        obstacle = file.string() + " holds no private key (\"BEGIN PRIVATE KEY\")";
    return blocks;
}

/// The value of "key = value" in a renewal's file; empty where there is none.
std::string ValueOf(const std::string& text, const std::string& key) {
    for (std::string line : str::Split(text, "\n")) {
        const std::string name = str::Trim(str::GetWord(line, '='));
        if (name == key) return str::Trim(line);
    }
    return "";
}

/// Plug-ins for name servers are all named so.
std::string CheckOf(const fs::path& renewal) {
    std::string missing;
    return ValueOf(Read(renewal, missing), "authenticator").starts_with("dns") ? "dns" : "";
}

}  // namespace

ImportSource ReadCertificateFiles(const fs::path& certificate, const fs::path& key, const fs::path& chain) {
    ImportSource source;
    source.certificates = CertificatesIn(certificate, source.obstacle);
    if (!chain.empty() && source.obstacle.empty())
        source.certificates += CertificatesIn(chain, source.obstacle);
    if (source.obstacle.empty()) source.key = KeyIn(key, source.obstacle);
    return source;
}

std::vector<ImportSource> ReadLetsencryptFolder(const fs::path& folder) {
    std::vector<ImportSource> sources;
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder / "live")) {
            if (!entry.is_directory()) continue;  // a file there explains the folder
            const std::string name = entry.path().filename();
            ImportSource source =
                ReadCertificateFiles(entry.path() / "fullchain.pem", entry.path() / "privkey.pem", "");
            source.name = name;
            source.check = CheckOf(folder / "renewal" / (name + ".conf"));
            sources.push_back(std::move(source));
        }
    } catch (const fs::filesystem_error& error) {
        throw Error(Code::kIo, "reading " + (folder / "live").string() + ": " + error.code().message());
    }
    std::sort(sources.begin(), sources.end(),
              [](const auto& one, const auto& other) { return one.name < other.name; });
    return sources;
}

std::string DomainOfName(const std::string& name) {
    const std::size_t dash = name.rfind('-');
    const bool numbered = dash != std::string::npos && dash + 1 + kNumberDigits == name.size() &&
                          name.find_first_not_of("0123456789", dash + 1) == std::string::npos;
    return numbered ? name.substr(0, dash) : name;
}

}  // namespace zelvek::cli
