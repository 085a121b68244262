#pragma once

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <map>
#include <memory>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/store/sqlite_connection.h"

/// What the SQLite connection and its statements share behind their headers: the SQL library.
namespace zelvek {

struct SqliteConnection::State {
    explicit State(const std::string& database) : session(soci::sqlite3, database) {}

    soci::session session;
    bool changed = false;                         // since the transaction's beginning
    std::map<std::string, soci::statement> kept;  // by text; those that are in use are taken out
};

/// Does something with the library. Its own error text quotes the statement with all values, keys among them,
/// so only the engine's sentence is taken over.
template <class Action>
auto Translated(const Action& action) -> decltype(action()) {
    try {
        return action();
    } catch (const soci::sqlite3_soci_error& error) {
        constexpr int kPrimary = 0xff;  // the rest of a result says more of the same
        if ((error.result() & kPrimary) == SQLITE_BUSY)
            throw Error(Code::kLater, "the database is locked by another program");
        // There may be room again soon: nothing has been changed.
        if ((error.result() & kPrimary) == SQLITE_FULL || (error.result() & kPrimary) == SQLITE_IOERR)
            throw Error(Code::kLater, "the database cannot be written: " + error.get_error_message());
        throw Error(Code::kInternal, error.get_error_message());
    } catch (const soci::soci_error& error) {
        throw Error(Code::kInternal, error.get_error_message());
    }
}

/// One use of the statement of this text, which the connection keeps prepared afterwards.
std::unique_ptr<StatementUse> UseOf(SqliteConnection::State& connection, const std::string& sql);

}  // namespace zelvek
