// The job log's error text of any response: a fixed frame around a code and details.
#include <algorithm>
#include <cstdlib>

#include "acme/response.h"
#include "double/vek_double.h"
#include "support/target.h"

namespace {

const std::string kBegin = "<p><b>Return code:</b> ";
const std::string kMiddle = "</p></br><p><b>Details:</b> ";
const std::string kEnd = "</p>";

std::string Frame(const std::string& code, const std::string& details) {
    return kBegin + code + kMiddle + details + kEnd;
}

/// A JSON value in the words of the error text, by its type; `number` says that only integers are asked for.
std::string Words(const Json::Value& value, bool number) {
    switch (value.type()) {
        case Json::nullValue: return number ? "0" : "";
        case Json::booleanValue:
            return number ? std::to_string(static_cast<int>(value.asBool())) : value.asString();
        case Json::intValue:
        case Json::uintValue: return value.asString();
        case Json::realValue: {
            const double real = value.asDouble();
            const bool fits = number && real >= -2147483648.0 && real <= 2147483647.0;
            return fits ? std::to_string(static_cast<int>(real)) : value.asString();
        }
        case Json::stringValue: return value.asString();
        default: return "";
    }
}

Json::Value Member(const Json::Value& value, const std::string& name) {
    return value.isObject() && value.isMember(name) ? value[name] : Json::Value();
}

std::string Expected(const AcmeResponse& response) {
    if (!response.json.isObject()) return Frame(std::to_string(response.code), response.body);
    const Json::Value problem = response.json.isMember("error") ? response.json["error"] : response.json;
    return Frame(Words(Member(problem, "status"), true), Words(Member(problem, "detail"), false));
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    vek_double::World world;
    const std::string raw = TakeRest(input);
    const std::size_t blank = std::min(raw.find(' '), raw.size());
    AcmeResponse response(static_cast<int>(std::strtol(raw.c_str() + blank, nullptr, 10)), raw);
    const AcmeResponse before = response;
    const std::string text = GetACMEError(response);
    Hold(text.starts_with(kBegin) && text.ends_with(kEnd) && text.find(kMiddle) != std::string::npos,
         "the frame stands");
    HoldEqual(text, Expected(before), "code and details are the problem's, or the response's own");
    Hold(response.json == before.json && response.body == before.body && response.headers == before.headers,
         "the response is only read");
}
