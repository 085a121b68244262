#pragma once

#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Notifications on their way to people. One waits without a recipient until somebody says who gets it, then
/// for a digest; a digest is all that waits for one recipient when its delivery begins, and bears an
/// attempt's name. Every function works inside the caller's transaction; times are date-times.
namespace zelvek::deliveries {

/// One notification for one recipient, or, without a digest, for those still to be found.
struct Entry {
    long long id = 0;
    long long problem = 0;
    std::string owner;  // of the notification
};

/// Somebody who gets digests, as long as there is something to say or a pause to be kept.
struct Recipient {
    std::string name = {};
    std::string next = {};    // when the next delivery may begin
    int failures = 0;         // of deliveries, one after the other
    std::string digest = {};  // the attempt under way, or to be repeated as it was; empty for none
    long long doubtful = 0;   // notifications of earlier attempts of which nobody knows what became
};

/// The notification waits to be told, unless it does already.
void Queue(Transaction& transaction, long long problem);

/// Those that wait for recipients, oldest first, at most `limit`. `route` is empty for new ones; others are
/// what `Reroute` has given it.
std::vector<Entry> Unrouted(Transaction& transaction, const std::string& route, int limit);

/// The entry goes to these recipients, or to nobody; one that is new may get its first digest at `next`.
void Route(Transaction& transaction, const Entry& entry, const std::vector<std::string>& recipients,
           const std::string& next);

/// All that waits for recipients whose names begin with `route` waits for recipients again.
void Reroute(Transaction& transaction, const std::string& route);

/// Recipients whose next delivery may begin at `now`, and those with a time after `latest`, at most `limit`.
std::vector<Recipient> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                           int limit);

/// Begins the attempt: what waits for the recipient, the oldest `most`, is its digest, unless an earlier one
/// is to be repeated. Returns the attempt's name; empty where there is nothing to be told: the recipient is
/// forgotten then, unless something doubtful is to be told with the next digest.
std::string Begin(Transaction& transaction, const Recipient& recipient, const std::string& attempt, int most);

/// The notifications of a digest, the oldest first.
std::vector<long long> ProblemsOf(Transaction& transaction, const std::string& recipient,
                                  const std::string& digest);

/// From now on nobody but the one who takes the digest over knows whether it was accepted.
void SetHanded(Transaction& transaction, const std::string& recipient);

/// It was accepted: it is not told again, and the next one may begin at `next`.
void Finish(Transaction& transaction, const Recipient& recipient, const std::string& next);

/// It was surely not accepted: what was in it waits again, together with what has come meanwhile.
void Postpone(Transaction& transaction, const Recipient& recipient, const std::string& next);

/// It is not known whether it was accepted: the same one is tried again.
void Repeat(Transaction& transaction, const Recipient& recipient, const std::string& next);

/// Forgets the digests that were handed over by a service that has ended since, and counts what was in them
/// as doubtful. Returns their recipients.
std::vector<std::string> GiveUpInterrupted(Transaction& transaction);

}  // namespace zelvek::deliveries
