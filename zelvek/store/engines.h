#pragma once

#include <memory>
#include <string>

#include "zelvek/store/connection.h"
#include "zelvek/store/place.h"

/// The engines that keep stores. That of files is in the program; every other is a shared object beside it,
/// which a package of its own brings.
namespace zelvek {

/// What such a shared object holds, under the name `zelvek_engine`.
struct Engine {
    const char* version;  // the program's, which it was made with
    std::unique_ptr<Connection> (*open)(const std::string& url, Sharing sharing);
    void (*check)(const std::string& url);  // whether the URL can be used; nobody is asked
    std::string (*look)(const std::string& url);
};

/// Opens the database; a file is made where there is none. Errors: those of the engine; of code kBusy when it
/// is to be had alone and somebody else has it; of code kMissed, with the package's name, for an engine that
/// is not installed.
std::unique_ptr<Connection> Open(const Place& place, Sharing sharing);

/// Whether the engine is there and could use the place. Nothing is opened. Errors: as `Open`'s, and Error of
/// code kValue for a URL that the engine does not understand.
void CheckPlace(const Place& place);

/// Connects to a server's database, changes nothing, and says in a part of a sentence what is there. Errors:
/// as `Open`'s.
std::string LookAt(const Place& place);

}  // namespace zelvek
