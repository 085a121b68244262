// What the program finds in this shared object.
#include "zelvek/postgresql/connection.h"
#include "zelvek/store/engines.h"

namespace {

using zelvek::postgresql::Client;

std::unique_ptr<zelvek::Connection> Open(const std::string& url, zelvek::Sharing sharing) {
    return std::make_unique<zelvek::postgresql::PostgresqlConnection>(url, sharing);
}

std::string Look(const std::string& url) {
    Client client(url);
    const std::string tables = client.Ask(
        "SELECT count(*) FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace"
        " WHERE n.nspname = current_schema() AND c.relname = 'zelvek_version'");
    const std::string version = tables == "1" ? client.Ask("SELECT version FROM zelvek_version") : "";
    return "PostgreSQL " + client.ServerVersion() + " answers, " +
           (version.empty() ? "and has no tables of zelvek's yet" : "its tables have version " + version);
}

}  // namespace

extern "C" {
extern const zelvek::Engine zelvek_engine;
const zelvek::Engine zelvek_engine{ZELVEK_VERSION, &Open, &zelvek::postgresql::CheckUrl, &Look};
}
