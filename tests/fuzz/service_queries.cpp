// Any queries to the service, in any order: each has an answer that the framework's client reads, no key
// leaves by it, and what is published is known.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "support/plain.h"
#include "support/target.h"
#include "vek/client.h"
#include "vek/err.h"
#include "zelvek/base/error.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/publishing/dns_record.h"
#include "zelvek/service/sweep.h"
#include "zelvek/store/jobs.h"

namespace {

namespace fs = std::filesystem;
using zelvek::Process;
using Records = std::set<std::string>;

// Stands for a private key; no input may bring it itself.
const std::string kKey = "KEY-nKq8vQ2w";

/// TXT records in memory, as strict as the real back ends.
class MemoryRecords : public zelvek::dns::Backend {
public:
    bool Serves(const std::string& zone) const override { return zone != "unserved.example"; }
    void AddTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        zelvek::dns::CheckedNewRecord(zone, name, value);
        if (!records.insert(zone + " " + name + " " + value).second)
            throw zelvek::Error(zelvek::Code::kExists, "it is there");
    }
    void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        zelvek::dns::CheckedRecord(zone, name, value);
        records.erase(zone + " " + name + " " + value);
    }

    Records records;
};

/// One service for all inputs; `Clear` makes it new.
struct Service {
    fs::path folder = MakeFolder();
    fs::path answers = folder / "answers";
    zelvek::Store store{folder / "zelvek.db"};
    std::shared_ptr<MemoryRecords> records = std::make_shared<MemoryRecords>();
    zelvek::Publisher publisher{store, answers, records};
    zelvek::Reloader reloader{store, {}};
    zelvek::Services services{store, publisher, {folder / "certs"}, reloader};
    Process living = *zelvek::FindProcess(getpid());
    Process dead{living.pid, living.start - 1};

    static fs::path MakeFolder() {
        std::string folder = (fs::temp_directory_path() / "service.XXXXXX").string();
        fuzz::Hold(mkdtemp(folder.data()) != nullptr, "the target has a folder");
        fs::create_directory(fs::path(folder) / "answers");
        return folder;
    }

    void Clear() {
        SQLite::Database database((folder / "zelvek.db").string(), SQLite::OPEN_READWRITE);
        database.exec("PRAGMA foreign_keys = OFF");
        std::vector<std::string> tables;
        SQLite::Statement names(database, "SELECT name FROM sqlite_master WHERE type = 'table'");
        while (names.executeStep()) tables.push_back(names.getColumn(0).getString());
        for (const std::string& table : tables) database.exec("DELETE FROM " + table);
        records->records.clear();
        for (const auto& entry : fs::directory_iterator(answers)) fs::remove(entry);
    }

    std::string Ask(const std::string& form, const Process& caller) {
        return zelvek::AnswerQuery(services, {zelvek::Parameters(form), caller, "", zelvek::Right::kOwn})
            .text;
    }
};

/// The answer's error, or an empty text.
std::string TypeOf(const std::string& body) {
    try {
        const vek_client::Result result(body);
        return "";
    } catch (const vek_err::Error& error) {
        return error.type();
    }
}

void MustPass(Service& service, const std::string& form) {
    fuzz::HoldEqual(TypeOf(service.Ask(form, service.living)), "", "a query of the target's own passes");
}

/// A domain, a job that has an account, and a default account.
void Furnish(Service& service) {
    MustPass(service, "func=zelvek.domain.add&name=example.org&user_name=alice");
    MustPass(service,
             "func=zelvek.job.add&domain=example.org&aliases=www.example.org&user_name=alice&check_type=dns");
    MustPass(service, "func=ambrin.data.edit&elid=1");
    MustPass(service, "func=ambrin.data.edit&elid=1&sok=ok&kid=k&update_default_account=on&acmekey=" + kKey);
    MustPass(service, "func=ambrin.data.edit&elid=1");
}

bool MakesSlowKey(const zelvek::Parameters& parameters) {
    return parameters.Get("func") == "sslcert.csr.edit" && parameters.Has("domain") &&
           parameters.Get("key_type") != "ec";
}

/// One query: "d" before it lets a process ask that is dead meanwhile.
void HoldQuery(Service& service, const std::string& line) {
    const std::string form = line.substr(std::min<std::size_t>(line.size(), 1));
    const zelvek::Parameters parameters(form);
    if (MakesSlowKey(parameters)) return;
    const std::string answer = service.Ask(form, line.starts_with('d') ? service.dead : service.living);
    const std::string type = TypeOf(answer);
    const std::set<std::string> types{"",     "missed", "value",  "exists",  "stale",
                                      "busy", "dns",    "badkey", "badchain"};
    fuzz::Hold(types.count(type) == 1, "an answer is a result, or a refusal that says why");
    const std::string& function = parameters.Get("func");
    const bool given = function == "ambrin.data.edit" || function == "sslcert.csr.edit";
    fuzz::Hold(given || answer.find(kKey) == std::string::npos, "no key leaves but to the program");
}

std::string KeyOfJob(Service& service) {
    zelvek::Transaction transaction(service.store);
    try {
        return zelvek::jobs::Find(transaction, 1).acmekey;
    } catch (const zelvek::Error&) {
        return "removed";
    }
}

/// Everything outside is recorded, and inside the folder for it.
void HoldPublications(Service& service) {
    std::set<std::string> known;
    {
        SQLite::Database database((service.folder / "zelvek.db").string());
        SQLite::Statement rows(database, "SELECT zone, name, value FROM publication");
        while (rows.executeStep()) {
            known.insert(plain::Join({rows.getColumn(0), rows.getColumn(1), rows.getColumn(2)}, " "));
        }
    }
    for (const auto& entry : fs::directory_iterator(service.answers)) {
        const std::string name = entry.path().filename();
        fuzz::Hold(zelvek::answers::IsToken(name), "an answer file is named by a token");
        fuzz::Hold(known.count(" " + name + " ") == 1, "every answer file is known");
    }
    for (const std::string& record : service.records->records)
        fuzz::Hold(known.count(record) == 1, "every record is known");
    for (const auto& entry : fs::directory_iterator(service.folder)) {
        const std::string name = entry.path().filename();
        fuzz::Hold(name.starts_with("zelvek.db") || name == "answers" || name == "certs",
                   "nothing is written elsewhere");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    static Service service;
    const std::string text = TakeRest(input);
    if ((text + zelvek::FormDecode(text)).find(kKey) != std::string::npos) return;
    service.Clear();
    Furnish(service);
    const auto lines = plain::Lines(text);
    for (std::size_t i = 0; i < lines.size() && i < 16; ++i) HoldQuery(service, lines[i]);
    Hold(!KeyOfJob(service).empty(), "no query empties a stored account key");
    HoldPublications(service);
    zelvek::Sweep(service.services, {});
    HoldPublications(service);
}
