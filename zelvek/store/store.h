#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "zelvek/store/place.h"
#include "zelvek/store/statement.h"

namespace zelvek {

class Connection;

/// Everything that the panel keeps: jobs and their history, accounts with their private keys, domains,
/// requests, notifications, publications. One file of this folder for each; all their functions work inside a
/// `Transaction`.
class Store {
public:
    /// Opens the database, which is made where it is a file, and brings it to the newest version; of several
    /// that do so at once, one does and the others wait. Errors: Error that names the place: of code kBusy
    /// when another process has it; a database of a newer version than this program's is one, and what is no
    /// database of ours or another user's, which stays as it is.
    explicit Store(const Place& place, Sharing sharing = Sharing::kAlone);

    /// As `Tidy`; what fails is logged.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Empties the engine's log of changes where a deleted key may still be read in it; in the database
    /// itself a deleted key's bytes are zeros. Does nothing where no key was deleted since the last time, and
    /// waits for nobody: while another program reads the database the log stays, and the next call tries
    /// again. What the log's freed blocks on the disk still hold is the file system's. Errors: Error.
    void Tidy();

    /// Has `listener` told, on the thread that commits it, the earliest time at which a job has become due by
    /// a change; it must not use the store. An empty one ends that.
    void TellOfDue(std::function<void(const std::string& due)> listener);

    /// Has `listener` told, on the thread that commits it, of each transaction that has changed something; it
    /// must not use the store. An empty one ends that.
    void TellOfChange(std::function<void()> listener);

private:
    friend class Transaction;
    std::mutex mutex_;
    std::unique_ptr<Connection> connection_;
    bool untidy_ = true;  // a service that was killed may have left keys in the log
    std::function<void(const std::string&)> due_listener_;
    std::function<void()> change_listener_;
};

/// Everything that one piece of work reads and writes, seen by others as a whole or not at all. Others wait
/// meanwhile, so nothing slow is done inside. Rolled back unless committed.
class Transaction {
public:
    explicit Transaction(Store& store);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

    /// For the store's own functions that delete a key: `Store::Tidy` has something to do.
    void NoteDeletedKey() { store_.untidy_ = true; }

    /// For the store's own functions that change when a job is due or renewed; an empty text is no time.
    void NoteDue(const std::string& time);

    /// For the store's own functions: SQL that both SQLite and PostgreSQL understand, a ":name" for each
    /// value.
    Statement Prepare(const std::string& sql) { return Statement(*store_.connection_, sql); }

    /// For tests and for people who look for a slow query: the texts of all statements prepared so far.
    std::vector<std::string> Prepared() const;

private:
    Store& store_;
    std::lock_guard<std::mutex> lock_;
    bool open_ = true;
    std::string due_;  // the earliest of what was noted; empty for none
};

}  // namespace zelvek
