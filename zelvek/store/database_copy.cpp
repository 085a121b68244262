#include "zelvek/store/database_copy.h"

#include <fcntl.h>

#include <functional>
#include <string>
#include <system_error>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/store/soci_state.h"
#include "zelvek/store/sqlite_connection.h"
#include "zelvek/store/statement.h"
#include "zelvek/store/store.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

/// Beside a service's connection: this one takes no lock that keeps a service from starting or writing.
class Onlooker {
public:
    explicit Onlooker(const fs::path& file)
        : session_(soci::sqlite3, "dbname=\"" + fs::absolute(file).string() + "\" readonly=true timeout=10") {
    }

    soci::session& session() { return session_; }

    long long Count(const std::string& table) {
        long long count = 0;
        session_ << "SELECT count(*) FROM " << table, soci::into(count);
        return count;
    }

private:
    soci::session session_;
};

/// The engine would make one that is missing, and names no file in its errors.
template <class Action>
auto WithFile(const fs::path& file, const Action& action) -> decltype(action()) {
    const std::string name = "database " + file.string() + ": ";
    if (!fs::exists(file)) throw Error(Code::kMissed, name + "it is not there");
    if (file.string().find('"') != std::string::npos)
        throw Error(Code::kIo, "the path of a database can hold no quote");
    try {
        return Translated(action);
    } catch (const Error& error) {
        throw Error(error.code(), name + error.what());
    }
}

void CheckWhole(const fs::path& file) {
    SqliteConnection connection(file);
    std::string fault;
    Statement(connection, "PRAGMA integrity_check(1)").Into(fault).Next();
    if (fault != "ok") throw Error(Code::kIo, "it is damaged: " + fault);
}

/// A process of this machine could have the number of one that was on the other.
void ForgetProcesses(const fs::path& file) {
    SqliteConnection connection(file);
    connection.Begin();
    connection.Execute({"UPDATE job SET holder_pid = 0, holder_start = 0", "DELETE FROM reader",
                        "DELETE FROM csr", "DELETE FROM answered_query",
                        "UPDATE publication SET pid = 0, start = 0, withdrawn_pid = 0, withdrawn_start = 0",
                        "UPDATE publication SET missing = 1 WHERE zone = '' AND kept = 1 AND unwanted = 0"});
    connection.Commit();
}

}  // namespace

void CopyDatabase(const fs::path& from, const fs::path& to) {
    const auto copy = [&] {
        Onlooker source(from);
        // The engine fills an empty file, which has its mode before anything is in it.
        Open(to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
        const std::string target = fs::absolute(to);
        source.session() << "VACUUM INTO :target", soci::use(target);
    };
    try {
        WithFile(from, copy);
    } catch (const Error&) {
        std::error_code ignored;
        fs::remove(to, ignored);
        throw;
    }
}

DatabaseCounts CountsOf(const fs::path& file) {
    return WithFile(file, [&] {
        Onlooker database(file);
        return DatabaseCounts{database.Count("job"), database.Count("domain"), database.Count("account")};
    });
}

void AdoptDatabase(const fs::path& file) {
    WithFile(file, [&] { CheckWhole(file); });
    { const Store newest(file); }
    WithFile(file, [&] { ForgetProcesses(file); });
}

}  // namespace zelvek
