#include "zelvek/panel/functions.h"

#include <charconv>
#include <exception>
#include <map>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

using Table = std::map<std::string, PanelFunction>;

Table MakeTable() {
    Table table;
    for (const PanelFunction& each : EveryFunction()) table.emplace(each.name, each);
    return table;
}

/// Nothing else is looked at before: who may not ask learns of nothing that is there.
void CheckRight(const Services& services, const Query& query, const PanelFunction& function) {
    if (function.needs != Right::kNone && query.right >= function.needs) return;
    throw Error(Code::kDenied, "func", function.name,
                function.name + " " + WhoHas(function.needs, services.groups));
}

std::string Perform(Services& services, const Query& query) {
    static const Table table = MakeTable();
    const std::string& name = query.parameters.Get("func");
    const auto function = table.find(name);
    if (function == table.end())
        throw Error(Code::kMissed, "func", name, "there is no function \"" + name + "\"");
    CheckRight(services, query, function->second);
    XmlAnswer answer;
    function->second.body(services, query, answer);
    return answer.Text();
}

/// Whether a person has to mend something before the same query can succeed.
bool IsForPeople(Code code) {
    return code == Code::kValue || code == Code::kMissed || code == Code::kDns || code == Code::kBadKey ||
           code == Code::kBadChain || code == Code::kBadNames;
}

/// The program writes some errors of its queries to its log alone: they belong into the job's history too.
/// What an installation says, it tells itself.
void NoteRefusal(Services& services, const Query& query, const std::string& function,
                 const Error& error) try {
    // A write-back that is refused changes nothing, and runs are the service's own user's.
    if (!IsForPeople(error.code()) || function == "ambrin.data.edit" || query.right != Right::kOwn) return;
    Transaction transaction(services.store);
    const int job = runs::JobOf(transaction, query.caller);
    if (job == 0) return;
    const std::string sentence = names::MakeText(Printable(error.sentence()));
    jobs::SetRefusal(transaction, job, sentence);
    if (function != "sslcert.hardreplace") {
        history::Add(
            transaction, job,
            {vek_date::DateTime().AsDateTime(), "failed", "panel_error", function + ": " + sentence});
    }
    transaction.Commit();
} catch (const Error& second) {
    Log(std::string("noting a refusal: ") + second.what());
}

}  // namespace

Functions EveryFunction() {
    Functions all;
    for (const auto& noun : {functions::JobRecord(), functions::Jobs(), functions::JobChanges(),
                             functions::JobLists(), functions::AnswerFiles(), functions::Records(),
                             functions::Domains(), functions::Certificates(), functions::CertificateList(),
                             functions::CertificateImport(), functions::Problems(), functions::Accounts(),
                             functions::Authorities(), functions::ServiceStatus(), functions::PageAccess()}) {
        all.insert(all.end(), noun.begin(), noun.end());
    }
    return all;
}

Answer AnswerQuery(Services& services, const Query& query) {
    const std::string& function = query.parameters.Get("func");
    std::string fault;
    try {
        return {Perform(services, query)};
    } catch (const Error& error) {
        if (error.code() != Code::kInternal) {
            NoteRefusal(services, query, function, error);
            return {ErrorAnswer(error), error.code() == Code::kLater,
                    error.code() == Code::kDenied ? error.sentence() : ""};
        }
        fault = error.what();
    } catch (const std::exception& error) {
        fault = error.what();
    }
    Log(function + ": " + fault);
    return {ErrorAnswer({Code::kInternal, function, "", "the service failed at this; its log says why"})};
}

int Number(const Query& query, const std::string& key) {
    const std::string& text = query.parameters.Get(key);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        throw Error(Code::kValue, key, text, "\"" + text + "\" is no number for \"" + key + "\"");
    }
    return number;
}

bool Flag(const Query& query, const std::string& key) {
    const std::string& text = query.parameters.Get(key);
    if (text != "on" && text != "off") {
        throw Error(Code::kValue, key, text, "\"" + key + "\" is \"on\" or \"off\", not \"" + text + "\"");
    }
    return text == "on";
}

Page::Page(const Query& query) {
    const int most = limit;
    if (query.parameters.Has("after")) after = Number(query, "after");
    if (query.parameters.Has("limit")) limit = Number(query, "limit");
    if (limit < 1 || limit > most) {
        throw Error(Code::kValue, "limit", std::to_string(limit), "\"limit\" is a number from 1 to 1000");
    }
}

}  // namespace zelvek
