#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Installed certificates that the web server has not taken over yet. Every function works inside the
/// caller's transaction; times are date-times.
namespace zelvek::reloads {

struct Reload {
    std::string user_name;
    std::string certname;     // ASCII form
    std::string directory;    // where the certificate lies
    std::string since;        // when the first certificate was installed that the web server does not have
    int failures = 0;         // of the command, one after the other
    std::string next = {};    // when it is tried again
    std::string reason = {};  // of the last failure
};

/// A new certificate is coming. One that waits already goes on waiting since its time.
void Expect(Transaction& transaction, const Reload& reload);

/// Counts one more failure.
void SetFailed(Transaction& transaction, const Reload& reload, const std::string& next,
               const std::string& reason);

/// The web server has it.
void Finish(Transaction& transaction, const std::string& user, const std::string& certname);

std::optional<Reload> Find(Transaction& transaction, const std::string& user, const std::string& certname);

/// Those to be tried at `now`, and those with a time after `latest`, the longest waiting first, at most
/// `limit`.
std::vector<Reload> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                        int limit);

}  // namespace zelvek::reloads
