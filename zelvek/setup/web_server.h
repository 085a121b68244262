#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// The web server's configuration as Debian lays it out: what is to be added to it, and what it has. Nothing
/// that is there is ever changed.
namespace zelvek::setup {

enum class Server { kNginx, kApache };

struct WebServer {
    Server server;
    std::filesystem::path folder;  // of its configuration
};

/// The one that is there below `etc`, or the one that is `wished` for ("nginx", "apache"; empty for none).
/// Errors: Error of code kMissed where there is none, of code kValue where there are both and none is wished
/// for.
WebServer FindWebServer(const std::filesystem::path& etc, const std::string& wished);

/// A file, or a symbolic link, that is to be there.
struct ConfigFile {
    std::filesystem::path path;
    std::string content;
    std::string target = {};  // of a link; empty for a file
    bool there = false;       // something that does the same is there already, and stays
};

/// What has every site of Apache, or each of nginx that includes it, serve the answers. Errors: Error of code
/// kExists for a file in the way that does not serve this folder, of code kValue for a folder whose name no
/// configuration can hold.
std::vector<ConfigFile> AnswerFiles(const WebServer& web, const std::filesystem::path& answers);

/// A site of nginx that does nothing but serve the answers of these names. Errors: Error of code kExists
/// where a site there names one of them: nginx would go by one of both alone.
ConfigFile AnswerSite(const WebServer& web, const std::vector<std::string>& names);

/// Whether a site of nginx that includes the answers is there for this name, or one for all names. Files are
/// read as texts: a configuration that is laid out otherwise may not be understood.
bool IncludesAnswers(const WebServer& web, const std::string& name);

/// Writes it unless it is there. Errors: Error of code kIo.
void Write(const ConfigFile& file);

/// What the site of these names needs: to include the answers, and the certificate that lies in `place`.
/// Without names the latter alone.
std::string LinesOfSite(const WebServer& web, const std::vector<std::string>& names,
                        const std::filesystem::path& place);

}  // namespace zelvek::setup
