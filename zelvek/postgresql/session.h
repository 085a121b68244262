#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/postgresql/client.h"
#include "zelvek/store/connection.h"
#include "zelvek/store/place.h"

namespace zelvek::postgresql {

/// A connection that is made again when it is lost: at the beginning of a transaction, never inside one.
class Session {
public:
    /// Errors: those of `Client`; Error of code kBusy where it is to be had alone and another service has it;
    /// of code kIo for another program's tables.
    Session(const std::string& url, Sharing sharing);

    bool IsUp() const { return client_ && client_->IsUp(); }

    /// The connection as it is. Errors: `Lost` when there is none.
    Client& client();

    /// The connection, made again if need be. Errors: `Lost`, without waiting, while the pause after a vain
    /// attempt lasts; pauses grow.
    Client& Renewed();

    /// After it was lost: asks, as soon as there is a connection again, whether the transaction of this
    /// number was committed. Errors: `Lost` when nobody can tell for some time.
    bool WasCommitted(const std::string& number);

    /// The name under which the statement is prepared.
    const std::string& NameOf(const std::string& sql);

    std::vector<std::string> Prepared() const;

private:
    void Connect();
    void SetUp();
    void EndFormer();
    void Claim();
    void CheckIsOurs();

    std::string url_;
    Sharing sharing_;
    std::unique_ptr<Client> client_;
    std::string former_process_;  // of the server, for the last connection
    std::string former_start_;
    std::map<std::string, std::string> names_;  // of prepared statements, by text
    std::chrono::milliseconds pause_{0};
    std::chrono::steady_clock::time_point next_attempt_;
};

}  // namespace zelvek::postgresql
