#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelvek/store/store.h"

/// Notifications for people: troubles, which are open until they are over, and news. Every function works
/// inside the caller's transaction.
namespace zelvek::problems {

/// What is told, to one owner. Name, owner, user and `about` together are its cause: while one of a cause is
/// open, what comes again is the same one.
struct Problem {
    std::string id = {};  // whoever repeats what was raised already names the same one; empty: the store's
    std::string name = {}, level = {};
    std::string owner = {};  // who is told; "root" is the administrator
    std::string time = {};   // when it came, the last time
    std::vector<std::pair<std::string, std::string>> parameters = {};  // of its text
    std::string user = {};       // whose certificate it is about; empty where it is about none
    std::string about = {};      // that certificate (`Job::folder`), or anything else that tells causes apart
    bool news = false;           // it tells of a success: there is nothing to be mended
    bool until_verified = true;  // it is over when the certificate's job is verified, not only by `Resolve`
    bool tell_again = false;     // one that is open, and seen perhaps, is raised anew

    // What the store gives.
    long long number = 0;    // in the order in which they came
    std::string state = {};  // "raised", "seen", "resolved"; "news" for news
    std::string since = {};  // when it came first
    long long times = 1;     // how often it has come
};

/// Raises it, and queues it to be told (deliveries.h). Once for each cause: one that is open already gets the
/// newest time, level and parameters, its state stays, and it is queued only where it is to be told again.
/// One that was over is raised anew. Each piece of news is one of its own. An id that is there already
/// changes nothing.
void Raise(Transaction& transaction, const Problem& problem);

/// What has this name, user and `about` is over, whoever was told; who was not told yet will not be. Where
/// nothing is open, nothing happens.
void Resolve(Transaction& transaction, const std::string& name, const std::string& user,
             const std::string& about);

/// The job of this certificate is verified, or removed: all that is about it is over, but what only `Resolve`
/// ends.
void ResolveOfCertificate(Transaction& transaction, const std::string& user, const std::string& folder);

/// Somebody knows of it. Says whether there is one of this number; one that is not raised stays as it is.
bool SetSeen(Transaction& transaction, long long number);

/// The same for all that are raised, at most `limit`. Returns how many there were.
long long SetSomeSeen(Transaction& transaction, int limit);

/// Somebody dismisses it: it is over, as if its cause had ended, and who was not told yet will not be; what
/// comes of its cause afterwards is raised anew. News go the same way. Says whether there is one of this
/// number.
bool Clear(Transaction& transaction, long long number);

/// The same for some of each state, at most `limit` of each. Returns how many there were.
long long ClearSome(Transaction& transaction, int limit);

enum class State { kOpen, kRaised, kSeen, kResolved, kNews, kAny };

/// The one with this number; nothing where it has been forgotten.
std::optional<Problem> Find(Transaction& transaction, long long number);

/// Those in this state about this user's certificates with numbers above `after`, at most `limit`, by number.
std::vector<Problem> ListOfUser(Transaction& transaction, const std::string& user, State state,
                                long long after, int limit);

/// Those in this state with numbers above `after`, at most `limit`, by number.
std::vector<Problem> List(Transaction& transaction, State state, long long after, int limit);

/// The open ones that this owner is told, with numbers above `after`, at most `limit`, by number.
std::vector<Problem> OpenOf(Transaction& transaction, const std::string& owner, long long after, int limit);

/// Removes those that are older than `time`, the oldest first, then those beyond the newest `most`; at most
/// `limit` altogether. Returns how many it has removed.
long long RemoveOlder(Transaction& transaction, const std::string& time, long long most, int limit);

}  // namespace zelvek::problems
