#pragma once

#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/authority.h"
#include "zelvek/base/form.h"
#include "zelvek/base/process.h"
#include "zelvek/base/snapshot.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/reloader.h"
#include "zelvek/certificates/site_watch.h"
#include "zelvek/jobs/next_run.h"
#include "zelvek/panel/right.h"
#include "zelvek/panel/xml_answer.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/store/store.h"

/// The panel functions: what a query's "func" can name. One file for each noun, which registers its functions
/// beside their bodies.
namespace zelvek {

/// What the service's status tells of its process.
struct ServiceFacts {
    std::string started = {};  // date-time
    std::string database = {};
    std::string page = {};  // the address that people open; empty: there is no page
};

/// What the functions go by, and other options may change while the service runs.
struct Rules {
    RetryPolicy retry = {};
    int history_entries = 1000;  // of a job, the newest ones
    bool scheduler = false;      // whether due jobs are started
};

/// What the functions work with.
struct Services {
    Store& store;
    Publisher& publisher;
    install::Settings install;
    Reloader& reloader;
    Snapshot<Rules> rules = {};
    ServiceFacts facts = {};
    SiteWatch* sites = nullptr;  // null: nobody looks what web servers show
    authorities::Places plugins = {};
    GroupNames groups = {};
};

struct Query {
    Parameters parameters;
    Process caller;             // of the service's own user; no process where it is another user's
    std::string identity = {};  // the same each time that the caller sends it; empty for a caller without
    Right right = Right::kNone;
};

struct Answer {
    std::string text;
    bool later = false;       // the service cannot do it for the moment: the caller is to ask again
    std::string denied = {};  // what was said to a caller who may not ask that; empty for every other one
};

/// Carries the query out. Throws nothing: every error becomes an answer; what is the service's own fault is
/// logged, and answered as "internal".
Answer AnswerQuery(Services& services, const Query& query);

/// Every function: errors are `Error`.
using Function = void (*)(Services&, const Query&, XmlAnswer&);

/// A function that queries can name. There is none of which nobody has said who may ask it.
struct PanelFunction {
    PanelFunction(std::string called, Right needed, Function does)
        : name(std::move(called)), needs(needed), body(does) {}

    std::string name;
    Right needs;
    Function body;
};

/// The functions of a noun.
using Functions = std::vector<PanelFunction>;

namespace functions {

Functions JobRecord();
Functions Jobs();
Functions JobChanges();
Functions JobLists();
Functions AnswerFiles();
Functions Records();
Functions Domains();
Functions Certificates();
Functions CertificateList();
Functions CertificateImport();
Functions Problems();
Functions Accounts();
Functions Authorities();
Functions ServiceStatus();
Functions PageAccess();

}  // namespace functions

/// All of them.
Functions EveryFunction();

/// The number in the parameter `key`, 32 bits. Errors: Error of code kValue.
int Number(const Query& query, const std::string& key);

/// Whether the parameter `key` is "on"; anything but "on" and "off" is an Error of code kValue.
bool Flag(const Query& query, const std::string& key);

/// Which part of a list a query asks for: what comes after the entry `after`, at most `limit` entries.
/// Without these parameters it is the list's first part. Errors: as `Number`; a limit below 1 or above 1000
/// is one.
struct Page {
    explicit Page(const Query& query);

    int after = 0;
    int limit = 1000;
};

}  // namespace zelvek
