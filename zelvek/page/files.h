#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "zelvek/page/request.h"

namespace zelvek::page {

/// What a browser needs of the page, read once: nothing that is asked for later reaches the file system.
class Files {
public:
    /// Errors: Error of code kIo for a folder without index.html, or a file that cannot be read.
    explicit Files(const std::filesystem::path& folder);

    /// Status 404 for what is not there.
    Response Of(const Request& request) const;

    /// Those that texts/LANGUAGE.json is there for.
    const std::set<std::string>& languages() const { return languages_; }

private:
    struct File {
        std::string type, content, version;
    };

    std::map<std::string, File> files_;  // by path, "/app.js"
    std::set<std::string> languages_;
};

}  // namespace zelvek::page
