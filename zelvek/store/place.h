#pragma once

#include <filesystem>
#include <string>

namespace zelvek {

/// Who else may have a database open. Operations and migrations are safe for several; holders of jobs are
/// processes of one machine, so a service has its database alone.
enum class Sharing { kAlone, kSeveral };

/// Where a store is kept: a file of this machine, or a database that a server has and a URL names.
class Place {
public:
    /// A path, or the URL of a server's database as its client library has it ("postgresql://..."). Errors:
    /// Error of code kValue for a URL of another kind, and for one with a password: it would be read by
    /// everybody who sees the command line, a log or the service's status.
    Place(const std::filesystem::path& text) : Place(text.string()) {}
    Place(const std::string& text);

    bool IsFile() const { return engine_.empty(); }

    /// Absolute; of a file alone.
    const std::filesystem::path& File() const { return file_; }

    /// As it was given; of a server's database alone. Where to find a password may stand in it, so it goes to
    /// the client library and to nobody else.
    const std::string& Url() const { return url_; }

    /// The engine that a server's database needs, such as "postgresql".
    const std::string& Engine() const { return engine_; }

    /// For people: the file, or the URL without its parameters.
    std::string Shown() const;

private:
    std::filesystem::path file_;
    std::string url_;
    std::string engine_;
};

}  // namespace zelvek
