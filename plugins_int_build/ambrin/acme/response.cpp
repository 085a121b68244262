#include "acme/response.h"

#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/json_values.h"
#include "vek/str.h"

namespace {

constexpr int kFirstSuccess = 1;
constexpr int kLastSuccess = 399;

/// Cuts the next line off, from `position` on. Cutting from the text's front would copy a large body once per
/// header.
std::string NextLine(const std::string& text, std::size_t& position) {
    const std::size_t end = text.find('\n', position);
    const std::string line = text.substr(position, end == std::string::npos ? end : end - position);
    position = end == std::string::npos ? text.size() : end + 1;
    return str::Trim(line);
}

}  // namespace

AcmeResponse::AcmeResponse(int status, std::string raw) : code(status) {
    str::inpl::Trim(raw);
    std::size_t position = 0;
    while (position < raw.size()) {
        std::string line = NextLine(raw, position);
        if (line.empty()) break;
        if (line.find(':') == std::string::npos) continue;
        const std::string name = str::Lower(str::GetWord(line, ':'));
        headers[name] = str::Trim(line);
    }
    body = str::Trim(raw.substr(position));
    json = ParseAny(body);
}

bool IsFailed(const AcmeResponse& response) {
    return response.code < kFirstSuccess || response.code > kLastSuccess || HasMember(response.json, "error");
}

std::string HeaderOf(const AcmeResponse& response, const std::string& name, const std::string& otherwise) {
    const auto header = response.headers.find(name);
    return header == response.headers.end() ? otherwise : header->second;
}

bool TryParseACMEResponse(Json::Reader& reader, Json::Value& out, const std::string& text) {
    try {
        reader.parse(text.substr(0, text.find('\0')), out, true);
        return true;
    } catch (...) {
        Trace("error while parsing ACME resp: '%s'\nErrors '%s'", text, reader.getFormattedErrorMessages());
        ambrin_data.WriteLog("processing", "acme_response_error", text);
        return false;
    }
}

std::string GetACMEError(AcmeResponse& response) {
    std::string return_code = str::Str(response.code);
    std::string details = response.body;
    if (response.json.isObject()) {
        const Json::Value& problem =
            HasMember(response.json, "error") ? response.json["error"] : response.json;
        const Json::Value& status = MemberOf(problem, "status");
        return_code = status.isConvertibleTo(Json::intValue) ? str::Str(status.asInt()) : TextOf(status);
        details = TextOf(MemberOf(problem, "detail"));
    }
    return "<p><b>Return code:</b> " + return_code + "</p></br><p><b>Details:</b> " + details + "</p>";
}
