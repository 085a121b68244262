#include "zelvek/panel/functions.h"

#include <charconv>
#include <exception>
#include <map>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/panel.h"

namespace zelvek {

namespace {

// How long a request and its key wait for somebody when their maker has died.
constexpr int kKeepLeftCsr = 600;  // seconds

const std::map<std::string, Function>& Table() {
    static const std::map<std::string, Function> table{
        {"ambrin.data.edit", functions::EditJob},
        {"problems.register", functions::RegisterProblem},
        {"ambrin_challenge", functions::EditAnswer},
        {"domain", functions::ListDomainsOfUser},
        {"domain.record.edit", functions::EditRecord},
        {"domain.record.delete", functions::DeleteRecord},
        {"sslcert.csr.edit", functions::EditCsr},
        {"sslcert.csr.delete", functions::DeleteCsr},
        {"sslcert.hardreplace", functions::InstallCertificate},
        {"zelvek.domain.add", functions::AddDomain},
        {"zelvek.domain.list", functions::ListDomains},
        {"zelvek.job.add", functions::AddJob},
        {"zelvek.job.list", functions::ListJobs},
        {"zelvek.job.show", functions::ShowJob},
        {"zelvek.job.remove", functions::RemoveJob},
        {"zelvek.job.claim", functions::ClaimJob},
        {"zelvek.problem.list", functions::ListProblems},
        {"zelvek.account.show", functions::ShowAccount},
    };
    return table;
}

std::string Carry(Services& services, const Query& query) {
    const std::string& name = query.parameters.Get("func");
    const auto function = Table().find(name);
    if (function == Table().end())
        throw Error(Code::kMissed, "func", name, "there is no function \"" + name + "\"");
    XmlAnswer answer;
    function->second(services, query, answer);
    return answer.Text();
}

}  // namespace

std::string AnswerQuery(Services& services, const Query& query) {
    const std::string& function = query.parameters.Get("func");
    try {
        return Carry(services, query);
    } catch (const Error& error) {
        return ErrorAnswer(error);
    } catch (const std::exception& error) {
        Log(function + ": " + error.what());
        return ErrorAnswer({Code::kInternal, function, "", "the service failed at this; its log says why"});
    }
}

void Sweep(Services& services) {
    const vek_date::DateTime now;
    {
        Transaction transaction(services.store);
        jobs::EndDeadRuns(transaction.database(), now.AsDateTime());
        jobs::ForgetDeadReaders(transaction.database());
        csrs::RemoveLeft(transaction.database(),
                         vek_date::DateTime(now).AddSeconds(-kKeepLeftCsr).AsDateTime());
        transaction.Commit();
    }
    services.publications.RemoveUnwanted();
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

}  // namespace zelvek
