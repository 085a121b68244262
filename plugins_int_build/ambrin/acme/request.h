#pragma once

#include <json/json.h>

#include <string>

#include "acme/signing_key.h"

/// What a request to the authority needs. One value serves all requests of a run.
struct QueryParams {
    Json::Value directory;   // resource names to URLs (RFC 8555 section 7.1.1)
    Json::Value payload;     // of the next signed request; a POST-as-GET does not read it
    std::string url;         // absolute, or the name of a member of `directory`
    std::string error_name;  // the job log's word for a failed signed request; empty: "acme_request_error"
    SigningKey key;          // of the account that has signed last
};
