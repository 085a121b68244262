#include "zelvek/panel/functions.h"

#include <charconv>
#include <exception>
#include <map>

#include "zelvek/base/error.h"
#include "zelvek/base/log.h"

namespace zelvek {

namespace {

using Table = std::map<std::string, Function>;

Table MakeTable() {
    Table table;
    for (const auto& noun :
         {functions::JobRecord(), functions::Jobs(), functions::AnswerFiles(), functions::Records(),
          functions::Domains(), functions::Certificates(), functions::Problems(), functions::Accounts()}) {
        table.insert(noun.begin(), noun.end());
    }
    return table;
}

std::string Perform(Services& services, const Query& query) {
    static const Table table = MakeTable();
    const std::string& name = query.parameters.Get("func");
    const auto function = table.find(name);
    if (function == table.end())
        throw Error(Code::kMissed, "func", name, "there is no function \"" + name + "\"");
    XmlAnswer answer;
    function->second(services, query, answer);
    return answer.Text();
}

}  // namespace

Answer AnswerQuery(Services& services, const Query& query) {
    const std::string& function = query.parameters.Get("func");
    std::string fault;
    try {
        return {Perform(services, query)};
    } catch (const Error& error) {
        if (error.code() != Code::kInternal) return {ErrorAnswer(error), error.code() == Code::kLater};
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
