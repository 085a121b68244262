// Any raw response gives a record: the one that a plain reading of its lines gives.
#include "acme/response.h"

#include <algorithm>
#include <cstdlib>
#include <locale>
#include <sstream>

#include "ambrin_data.h"
#include "double/vek_double.h"
#include "encoding/json_values.h"
#include "support/plain.h"
#include "support/target.h"

namespace {

struct Record {
    std::map<std::string, std::string> headers;
    std::string body;
};

Record ReadPlainly(const std::string& raw) {
    std::istringstream rest(plain::Trim(raw));
    Record record;
    for (std::string line; std::getline(rest, line);) {
        line = plain::Trim(line);
        if (line.empty()) break;
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        std::use_facet<std::ctype<char>>(std::locale::classic())
            .tolower(name.data(), name.data() + name.size());
        record.headers[name] = plain::Trim(line.substr(colon + 1));
    }
    record.body = plain::Trim(std::string(std::istreambuf_iterator<char>(rest), {}));
    return record;
}

void HoldHeaders(const AcmeResponse& response) {
    for (const auto& [name, value] : response.headers) {
        fuzz::Hold(
            std::none_of(name.begin(), name.end(), [](char c) { return (c >= 'A' && c <= 'Z') || c == ':'; }),
            "a header's name is in lower case and ends before the colon");
        fuzz::HoldEqual(value, plain::Trim(value), "a header's value is trimmed");
        fuzz::HoldEqual(HeaderOf(response, name, "otherwise"), value, "a header is found by its name");
    }
}

/// What a reader that allows nothing beyond JSON takes is taken as it is; what is too deep for it gives null.
void HoldJson(const AcmeResponse& response) {
    fuzz::Hold(!response.body.empty() || response.json.isNull(), "an empty body has no JSON");
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> strict(builder.newCharReader());
    Json::Value json;
    try {
        const char* const begin = response.body.data();
        if (!strict->parse(begin, begin + response.body.size(), &json, nullptr)) return;
    } catch (const std::exception&) {
        json = {};
    }
    fuzz::Hold(response.json == json, "the JSON is the body's");
}

void HoldTryParse(const std::string& text) {
    ambrin_data.log.clear();
    Json::Reader reader;
    Json::Value json;
    const bool parsed = TryParseACMEResponse(reader, json, text);
    const bool logged = ambrin_data.log.find(",processing,acme_response_error,") != std::string::npos;
    fuzz::Hold(parsed == ambrin_data.log.empty() && parsed != logged,
               "just a parse that throws is written to the job log");
    if (parsed)
        fuzz::Hold(json == ParseAny(text.substr(0, text.find('\0'))),
                   "the text counts up to its first NUL byte");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    vek_double::World world;
    const std::string raw = TakeRest(input);
    const std::size_t blank = std::min(raw.find(' '), raw.size());
    const auto code = static_cast<int>(std::strtol(raw.c_str() + blank, nullptr, 10));  // of the status line
    const AcmeResponse response(code, raw);
    const Record record = ReadPlainly(raw);
    Hold(response.code == code, "the status is the one given");
    Hold(response.headers == record.headers, "the headers are the lines before the first empty one");
    HoldEqual(response.body, record.body, "the body is what follows, trimmed");
    HoldHeaders(response);
    HoldJson(response);
    const bool good =
        code > 0 && code < 400 && !(response.json.isObject() && response.json.isMember("error"));
    Hold(IsFailed(response) != good, "the rule of failure");
    HoldTryParse(raw);
    Hold(world.steps() == 0, "nothing outside is asked");
}
