#include "zelvek/store/integrity.h"

#include <soci/sqlite3/soci-sqlite3.h>
#include <unistd.h>

#include <cerrno>

#include "zelvek/base/error.h"
#include "zelvek/store/soci_state.h"

namespace zelvek {

std::string DamageOf(const std::filesystem::path& database) {
    const std::filesystem::path file = std::filesystem::absolute(database);
    if (::access(file.c_str(), R_OK) != 0) throw IoError("cannot read", file, errno);
    if (file.string().find('"') != std::string::npos)
        throw Error(Code::kIo, "the path of a database can hold no quote");
    std::string found;
    Translated([&] {
        soci::session session(soci::sqlite3, "dbname=\"" + file.string() + "\" readonly=1 timeout=10");
        session << "PRAGMA quick_check(1)", soci::into(found);
    });
    return found == "ok" ? "" : found;
}

}  // namespace zelvek
