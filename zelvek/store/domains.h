#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Which domain belongs to which user. Every function works inside the caller's transaction.
namespace zelvek::domains {

struct Domain {
    int id = 0;
    std::string name;   // as it was added
    std::string ascii;  // canonical
    std::string user_name;
};

/// Errors: Error of code kExists: a domain belongs to one user.
void Add(Transaction& transaction, const Domain& domain);

/// The domain is nobody's any more.
void Remove(Transaction& transaction, int id);

/// A domain by its canonical name; nothing where it is nobody's.
std::optional<Domain> Find(Transaction& transaction, const std::string& ascii);

/// Of the domains that are `name` or lie above it, the longest one, whoever has it: it decides whose the name
/// is. Nothing where the name is nobody's. `name` is in the canonical form, without a wildcard.
std::optional<Domain> Holding(Transaction& transaction, const std::string& name);

/// A domain one label below `parent` (canonical) that is not this user's; nothing where there is none.
std::optional<Domain> OfAnotherBelow(Transaction& transaction, const std::string& parent,
                                     const std::string& user);

/// All domains of a user, by id.
std::vector<Domain> Of(Transaction& transaction, const std::string& user);

/// Everybody's domains with ids above `after`, at most `limit`.
std::vector<Domain> List(Transaction& transaction, int after, int limit);

}  // namespace zelvek::domains
