#include "acme/unsigned.h"

#include <sstream>

#include "acme/authority.h"
#include "ambrin_data.h"
#include "encoding/json_values.h"
#include "vek/rpc.h"

AcmeResponse AcmeGet(QueryParams& params) {
    vek_rpc::HttpQuery query;
    query.AcceptHeader();
    query.AcceptAnyResponse();
    std::ostringstream raw;
    try {
        query.Get(params.url, raw);
    } catch (const std::exception& error) {
        ambrin_data.WriteLog("failed", "http_query_error",
                             error.what() + std::string("<br>url: ") + params.url);
        return {-1, ""};
    }
    AcmeResponse response(query.Status(), raw.str());
    if (IsFailed(response)) ambrin_data.WriteLog("failed", "acme_request_error", GetACMEError(response));
    return response;
}

AcmeResponse GetDirectory(QueryParams& params) {
    params.url = kAuthority.directory_url;
    AcmeResponse response = AcmeGet(params);
    if (!IsFailed(response)) params.directory = response.json;
    return response;
}

std::string GetNonce(const QueryParams& params) {
    QueryParams asked;
    asked.url = TextOf(MemberOf(params.directory, "newNonce"));
    return HeaderOf(AcmeGet(asked), "replay-nonce");
}
