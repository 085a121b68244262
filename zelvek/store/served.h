#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Whether web servers show the certificates that are installed, and which are still to be looked for. Every
/// function works inside the caller's transaction; `folder` is `Job::folder`.
namespace zelvek::served {

// The words for `Served::state`.
inline constexpr const char* kServed = "served";            // the installed certificate is shown
inline constexpr const char* kOlder = "older";              // another one is shown
inline constexpr const char* kUnreachable = "unreachable";  // nothing is shown

struct Served {
    std::string state;
    std::string time;    // when somebody looked last
    std::string detail;  // a part of a sentence, for people; empty where all is well
};

void Set(Transaction& transaction, const std::string& user, const std::string& folder, const Served& served);

std::optional<Served> Find(Transaction& transaction, const std::string& user, const std::string& folder);

/// An installed certificate that the web server is to show.
struct Check {
    std::string user_name;
    std::string folder;
    std::string certname;   // ASCII form
    std::string directory;  // where it lies
    std::string since;      // when it was installed
    std::string next;       // when somebody looks next
    int looks = 0;          // so far
};

/// A certificate has been installed: what was seen before says nothing of it.
void Expect(Transaction& transaction, const Check& check);

/// Whether the certificate is still the one that was installed then, and looked for.
bool IsExpected(Transaction& transaction, const Check& check);

/// Counts a look; the next one is at that time.
void Postpone(Transaction& transaction, const Check& check, const std::string& next);

/// Nobody looks any more. What was seen stays.
void Finish(Transaction& transaction, const std::string& user, const std::string& folder);

/// Those to be looked for at `now`, and those with a time after `latest`, the longest waiting first, at most
/// `limit`.
std::vector<Check> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                       int limit);

/// Nothing is known of this certificate, and nobody looks for it.
void Forget(Transaction& transaction, const std::string& user, const std::string& folder);

}  // namespace zelvek::served
