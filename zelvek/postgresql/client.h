#pragma once

#include <libpq-fe.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/error.h"

/// The client library, with owners for what it hands out and errors that quote no value.
namespace zelvek::postgresql {

/// The connection is lost, or was refused: what was under way has not happened, unless it was a commit.
class Lost : public Error {
public:
    using Error::Error;
};

struct Result {
    struct Clear {
        void operator()(PGresult* result) const { ::PQclear(result); }
    };
    std::unique_ptr<PGresult, Clear> held;

    int Rows() const { return ::PQntuples(held.get()); }
    bool IsNull(int row, int column) const { return ::PQgetisnull(held.get(), row, column) != 0; }
    std::string Text(int row, int column) const;
    long long Changed() const;
};

/// A value of a statement; nothing for NULL.
using Values = std::vector<std::optional<std::string>>;

/// One connection. Errors: `Lost`; Error of code kLater for what may pass, such as a conflict with somebody
/// else's transaction or a full disk; of code kInternal for all else.
class Client {
public:
    /// Errors: also Error of code kIo for a server that cannot be used.
    explicit Client(const std::string& url);

    /// Several statements may stand in `sql`; the last one's result is returned.
    Result Do(const std::string& sql, const Values& values = {});
    void Prepare(const std::string& name, const std::string& sql);
    Result DoPrepared(const std::string& name, const Values& values);

    /// The first column of the first row; empty where there is none.
    std::string Ask(const std::string& sql, const Values& values = {});

    bool IsUp() const { return ::PQstatus(connection_.get()) == CONNECTION_OK; }
    bool IsInTransaction() const { return ::PQtransactionStatus(connection_.get()) != PQTRANS_IDLE; }

    /// Such as "15.8".
    std::string ServerVersion() const;

private:
    struct Finish {
        void operator()(PGconn* connection) const { ::PQfinish(connection); }
    };
    Result Checked(PGresult* result) const;
    void CheckServer() const;

    std::unique_ptr<PGconn, Finish> connection_;
};

/// Errors: Error of code kValue for a URL that the library does not understand, or that has a password.
void CheckUrl(const std::string& url);

}  // namespace zelvek::postgresql
