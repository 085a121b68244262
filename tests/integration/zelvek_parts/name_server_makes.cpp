// How each name server is set up for updates. docs/dns.md shows administrators the same.
#include "integration/zelvek_parts/name_server_makes.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "unit/zelvek_parts/support.h"
#include "vek/str.h"
#include "zelvek/base/tool.h"

namespace parts {
namespace {

void WriteZones(const Place& place) {
    const std::string records = "$TTL 60\n@ SOA ns hostmaster 1 3600 600 86400 45\n@ NS ns\nns A 127.0.0.1\n";
    Put(place.folder + "/example.test.db", records + "_acme-challenge.alias CNAME ns\n");
    Put(place.folder + "/static.test.db", records);
}

std::string Secret(const Place& place) {
    const std::string key = Content(place.key_file);
    const std::size_t begin = key.find("secret \"") + 8;
    return key.substr(begin, key.find('"', begin) - begin);
}

/// The text with what stands for the place's parts filled in.
std::string Filled(std::string text, const Place& place) {
    text = str::Replace(text, "FOLDER", place.folder);
    text = str::Replace(text, "KEY-FILE", place.key_file);
    text = str::Replace(text, "PORT", std::to_string(place.port));
    return str::Replace(text, "SECRET", Secret(place));
}

// Servers and addresses are for the tests of examinations, which look them up.
constexpr const char* kNamedConf = R"(include "KEY-FILE";
options {
    directory "FOLDER";
    managed-keys-directory "FOLDER";
    pid-file none;
    session-keyfile none;
    listen-on port PORT { 127.0.0.1; };
    listen-on-v6 { none; };
    recursion no;
    dnssec-validation no;
};
controls { };
zone "example.test" {
    type primary;
    file "example.test.db";
    update-policy {
        grant update zonesub TXT A NS;
    };
};
zone "static.test" { type primary; file "static.test.db"; };
)";

std::vector<std::string> PrepareBind(const Place& place) {
    Put(place.folder + "/named.conf", Filled(kNamedConf, place));
    return {"/usr/sbin/named", "-c", place.folder + "/named.conf", "-g"};
}

constexpr const char* kKnotConf = R"(server:
    rundir: FOLDER
    listen: 127.0.0.1@PORT
    udp-workers: 1
    tcp-workers: 1
    background-workers: 1
control:
    listen: FOLDER/knot.sock
database:
    storage: FOLDER/journal
    journal-db-max-size: 16M
log:
  - target: stderr
    any: info
key:
  - id: update
    algorithm: hmac-sha256
    secret: SECRET
acl:
  - id: challenges
    key: update
    action: update
    update-type: TXT
zone:
  - domain: example.test
    storage: FOLDER
    file: example.test.db
    acl: challenges
  - domain: static.test
    storage: FOLDER
    file: static.test.db
)";

std::vector<std::string> PrepareKnot(const Place& place) {
    // It does not make the folder by itself, and refuses updates without it.
    std::filesystem::create_directory(place.folder + "/journal");
    Put(place.folder + "/knot.conf", Filled(kKnotConf, place));
    return {"/usr/sbin/knotd", "-c", place.folder + "/knot.conf"};
}

/// The tables and columns that the server reads and writes; its package has the script only among its
/// documentation, which need not be installed.
constexpr const char* kPdnsTables = R"(
CREATE TABLE domains (id INTEGER PRIMARY KEY, name TEXT NOT NULL COLLATE NOCASE UNIQUE, master TEXT,
  last_check INTEGER, type TEXT NOT NULL, notified_serial INTEGER, account TEXT, options TEXT, catalog TEXT);
CREATE TABLE records (id INTEGER PRIMARY KEY, domain_id INTEGER, name TEXT, type TEXT, content TEXT,
  ttl INTEGER, prio INTEGER, disabled BOOLEAN DEFAULT 0, ordername TEXT, auth BOOL DEFAULT 1);
CREATE TABLE supermasters (ip TEXT, nameserver TEXT, account TEXT);
CREATE TABLE comments (id INTEGER PRIMARY KEY, domain_id INTEGER, name TEXT, type TEXT, modified_at INT,
  account TEXT, comment TEXT);
CREATE TABLE domainmetadata (id INTEGER PRIMARY KEY, domain_id INT, kind TEXT COLLATE NOCASE, content TEXT);
CREATE TABLE cryptokeys (id INTEGER PRIMARY KEY, domain_id INT, flags INT, active BOOL,
  published BOOL DEFAULT 1, content TEXT);
CREATE TABLE tsigkeys (id INTEGER PRIMARY KEY, name TEXT COLLATE NOCASE, algorithm TEXT COLLATE NOCASE,
  secret TEXT);
)";

void MakeDatabase(const std::string& file) {
    for (const char* rest : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(file + rest);
    SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(kPdnsTables);
}

void Pdnsutil(const Place& place, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "--config-dir=" + place.folder);
    const auto run = zelvek::RunProgram("/usr/bin/pdnsutil", arguments, std::chrono::seconds{60});
    if (run.status != 0) throw std::runtime_error("pdnsutil: " + run.output);
}

// Without the line of "security-poll-suffix" it asks the world for news.
constexpr const char* kPdnsConf = R"(launch=gsqlite3
gsqlite3-database=FOLDER/pdns.db
gsqlite3-pragma-synchronous=0
local-address=127.0.0.1
local-port=PORT
socket-dir=FOLDER
daemon=no
guardian=no
disable-syslog=yes
receiver-threads=1
distributor-threads=1
security-poll-suffix=
dnsupdate=yes
allow-dnsupdate-from=
)";

std::vector<std::string> PreparePowerDns(const Place& place) {
    MakeDatabase(place.folder + "/pdns.db");
    Put(place.folder + "/pdns.conf", Filled(kPdnsConf, place));
    for (const char* zone : {"example.test", "static.test"}) {
        Pdnsutil(place, {"load-zone", zone, place.folder + "/" + zone + ".db"});
    }
    Pdnsutil(place, {"import-tsig-key", "update", "hmac-sha256", Secret(place)});
    Pdnsutil(place, {"set-meta", "example.test", "TSIG-ALLOW-DNSUPDATE", "update"});
    Pdnsutil(place, {"set-meta", "example.test", "ALLOW-DNSUPDATE-FROM", "127.0.0.0/8"});
    return {"/usr/sbin/pdns_server", "--config-dir=" + place.folder};
}

}  // namespace

std::vector<std::string> Prepare(Make make, const Place& place) {
    WriteZones(place);
    switch (make) {
        case Make::kBind: return PrepareBind(place);
        case Make::kKnot: return PrepareKnot(place);
        case Make::kPowerDns: return PreparePowerDns(place);
    }
    throw std::logic_error("no such name server");
}

}  // namespace parts
