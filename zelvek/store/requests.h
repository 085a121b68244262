#pragma once

#include <optional>
#include <string>

#include "zelvek/base/process.h"
#include "zelvek/store/store.h"

/// Certificate requests and their keys between making and taking, by the name of the certificate (ASCII form)
/// and the process that made them: two runs for certificates of one name never get each other's key. Every
/// function works inside the caller's transaction.
namespace zelvek::requests {

struct Stored {
    std::string request, key;
};

void Put(Transaction& transaction, const std::string& name, const Process& maker, const Stored& request,
         const std::string& time);

/// The process's own one. A key is nobody else's, not even where its maker has died.
std::optional<Stored> Find(Transaction& transaction, const std::string& name, const Process& asker);

/// The process's own one, and those of the dead.
void Remove(Transaction& transaction, const std::string& name, const Process& asker);

/// Those of dead processes made before `time`.
void RemoveLeft(Transaction& transaction, const std::string& time);

}  // namespace zelvek::requests
