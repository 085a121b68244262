#include "zelvek/page/files.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

#include "zelvek/base/error.h"
#include "zelvek/base/secret.h"

namespace zelvek::page {

namespace fs = std::filesystem;

namespace {

const std::map<std::string, std::string> kTypes{{".html", "text/html; charset=utf-8"},
                                                {".css", "text/css; charset=utf-8"},
                                                {".js", "text/javascript; charset=utf-8"},
                                                {".json", "application/json"},
                                                {".svg", "image/svg+xml"}};
constexpr std::size_t kVersionLength = 32;

std::string Read(const fs::path& file) {
    std::ifstream input(file, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(input), {}};
    if (!input) throw IoError("cannot read", file, errno);
    return content;
}

}  // namespace

Files::Files(const fs::path& folder) {
    std::error_code error;
    for (fs::recursive_directory_iterator each(folder, error), end; !error && each != end;
         each.increment(error)) {
        const auto type = kTypes.find(each->path().extension().string());
        if (!each->is_regular_file() || type == kTypes.end()) continue;
        const std::string path = "/" + fs::relative(each->path(), folder).generic_string();
        const std::string content = Read(each->path());
        files_[path] = {type->second, content,
                        "\"" + secrets::HashOf(content).substr(0, kVersionLength) + "\""};
        if (path.starts_with("/texts/")) languages_.insert(each->path().stem().string());
    }
    const auto index = files_.find("/index.html");
    if (error || index == files_.end() || !languages_.contains("en"))
        throw Error(Code::kIo, "--page-files: the page's files are not in " + folder.string());
    files_["/"] = index->second;
}

Response Files::Of(const Request& request) const {
    const auto file = files_.find(request.path);
    if (file == files_.end()) return {404, "text/plain", "not found\n"};
    const auto& [type, content, version] = file->second;
    // It is asked each time whether there is a newer one, which costs little.
    std::map<std::string, std::string> headers{{"ETag", version}, {"Cache-Control", "no-cache"}};
    if (request.known == version) return {304, type, "", headers};
    return {200, type, content, headers};
}

}  // namespace zelvek::page
