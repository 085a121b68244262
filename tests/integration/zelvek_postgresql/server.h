#pragma once

#include <libpq-fe.h>
#include <sys/types.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zelvek::testing {

/// A PostgreSQL server of the test program's own, in a folder of its own, on a unix socket alone. It ends,
/// and its folder goes, when this ends or the test program does, in whatever way.
class PostgresqlServer {
public:
    PostgresqlServer();
    ~PostgresqlServer();
    PostgresqlServer(const PostgresqlServer&) = delete;
    PostgresqlServer& operator=(const PostgresqlServer&) = delete;

    /// The one that a test program has for all its tests, which starts when it is asked for.
    static PostgresqlServer& Shared();

    /// As an administrator does: the server ends at once, whoever is connected.
    void Stop();
    void Start();

    /// The URL of a database there.
    std::string Url(const std::string& database = "store") const;

    /// Where its socket lies.
    const std::filesystem::path& folder() const { return folder_; }

    /// Makes an empty database, or makes one anew.
    void Make(const std::string& database);

    /// The database "store" is as a new one, with all tables: what a test has left is gone.
    void Renew();

    /// A session of another program's.
    using Session = std::unique_ptr<PGconn, void (*)(PGconn*)>;
    Session Connect(const std::string& database = "store") const;

    /// The first column of what a statement gives, as another program gets it.
    std::vector<std::string> Do(const std::string& sql, const std::string& database = "store") const;

private:
    void Tell(const std::string& word);
    void MakeRenewable();

    std::filesystem::path folder_;
    pid_t keeper_ = -1;
    int words_ = -1;
    FILE* answers_ = nullptr;
    bool renewable_ = false;
};

}  // namespace zelvek::testing
