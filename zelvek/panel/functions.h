#pragma once

#include <string>

#include "zelvek/base/form.h"
#include "zelvek/base/process.h"
#include "zelvek/certificates/install.h"
#include "zelvek/panel/answer.h"
#include "zelvek/publishing/dns_backend.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/store/store.h"

/// The panel functions: what a query's "func" can name. One file for each thing they serve.
namespace zelvek {

/// What the functions work with.
struct Services {
    Store& store;
    Publications& publications;
    dns::Backend* records;  // null: no DNS back end
    install::Settings install;
};

struct Query {
    Parameters parameters;
    Process caller;
};

/// Carries the query out and returns the answer's text. Throws nothing: every error becomes an answer; what
/// is no `Error` is logged, and answered as "internal".
std::string AnswerQuery(Services& services, const Query& query);

/// Ends the runs of dead processes and takes back what they left. Safe from any thread.
void Sweep(Services& services);

/// Every function: errors are `Error`.
using Function = void (*)(Services&, const Query&, XmlAnswer&);

namespace functions {

// What the plug-ins ask.
void EditJob(Services&, const Query&, XmlAnswer&);
void RegisterProblem(Services&, const Query&, XmlAnswer&);
void EditAnswer(Services&, const Query&, XmlAnswer&);
void ListDomainsOfUser(Services&, const Query&, XmlAnswer&);
void EditRecord(Services&, const Query&, XmlAnswer&);
void DeleteRecord(Services&, const Query&, XmlAnswer&);
void EditCsr(Services&, const Query&, XmlAnswer&);
void DeleteCsr(Services&, const Query&, XmlAnswer&);
void InstallCertificate(Services&, const Query&, XmlAnswer&);

// What the command line asks. None of them gives a private key.
void AddDomain(Services&, const Query&, XmlAnswer&);
void ListDomains(Services&, const Query&, XmlAnswer&);
void AddJob(Services&, const Query&, XmlAnswer&);
void ListJobs(Services&, const Query&, XmlAnswer&);
void ShowJob(Services&, const Query&, XmlAnswer&);
void RemoveJob(Services&, const Query&, XmlAnswer&);
void ClaimJob(Services&, const Query&, XmlAnswer&);
void ListProblems(Services&, const Query&, XmlAnswer&);
void ShowAccount(Services&, const Query&, XmlAnswer&);

}  // namespace functions

/// The number in the parameter `key`, 32 bits. Errors: Error of code kValue.
int Number(const Query& query, const std::string& key);

/// Whether the parameter `key` is "on"; anything but "on" and "off" is a Error of code kValue.
bool Flag(const Query& query, const std::string& key);

}  // namespace zelvek
