#pragma once

#include <json/json.h>

#include <map>
#include <string>

/// What the authority answered.
struct AcmeResponse {
    /// Takes a raw response apart: header lines, a blank line, the body. Any text yields a record.
    AcmeResponse(int status, std::string raw);

    int code;  // HTTP status; -1 when the exchange could not be carried out
    std::map<std::string, std::string>
        headers;       // names in lower case, values trimmed; the last occurrence wins
    std::string body;  // trimmed
    Json::Value json;  // the body parsed; null for an empty body and for what is not JSON
};

/// The one rule of failure: a status outside 1 to 399, or a JSON object with a member "error".
bool IsFailed(const AcmeResponse& response);

/// The value of a header, by its lower-case name; `otherwise` when there is none.
std::string HeaderOf(const AcmeResponse& response, const std::string& name,
                     const std::string& otherwise = "");

/// Parses `text` up to its first NUL byte into `out`. False only where the JSON library throws, which is then
/// written to the job log as "acme_response_error"; a text that is no JSON gives true and whatever the
/// library leaves in `out`.
bool TryParseACMEResponse(Json::Reader& reader, Json::Value& out, const std::string& text);

/// The HTML fragment that the job log shows for a failed response: return code and details of the problem
/// document (RFC 7807), or status and body where there is none.
std::string GetACMEError(AcmeResponse& response);
