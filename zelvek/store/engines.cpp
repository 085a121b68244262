#include "zelvek/store/engines.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "zelvek/base/error.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/base/version.h"
#include "zelvek/store/sqlite_connection.h"

namespace zelvek {

namespace {

namespace fs = std::filesystem;

/// Beside the programs where they were built, below the installation's libraries where it was installed.
fs::path FileOf(const std::string& engine) {
    const std::string name = "zelvek-" + engine + ".so";
    const fs::path programs = PluginBesideProgram().parent_path();
    const fs::path built = programs / name;
    return fs::exists(built) ? built : programs.parent_path() / ZELVEK_ENGINES / name;
}

/// It stays loaded: what it has made may live as long as the program.
const Engine& Load(const std::string& engine) {
    const fs::path file = FileOf(engine);
    if (!fs::exists(file)) {
        throw Error(Code::kMissed, "this needs the package zelvek-" + engine + ", which is not installed");
    }
    void* const object = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (object == nullptr) throw Error(Code::kIo, std::string("cannot be loaded: ") + ::dlerror());
    const auto* const found = static_cast<const Engine*>(::dlsym(object, "zelvek_engine"));
    if (found == nullptr) throw Error(Code::kIo, file.string() + " is no engine of zelvek's");
    if (found->version != std::string(Version())) {
        throw Error(Code::kIo, "the package zelvek-" + engine + " is of version " + found->version +
                                   ", zelvek itself of " + Version());
    }
    return *found;
}

}  // namespace

std::unique_ptr<Connection> Open(const Place& place, Sharing sharing) {
    if (place.IsFile()) return std::make_unique<SqliteConnection>(place.File());
    return Load(place.Engine()).open(place.Url(), sharing);
}

void CheckPlace(const Place& place) {
    if (!place.IsFile()) Load(place.Engine()).check(place.Url());
}

std::string LookAt(const Place& place) { return Load(place.Engine()).look(place.Url()); }

}  // namespace zelvek
