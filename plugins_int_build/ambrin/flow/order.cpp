#include "flow/order.h"

#include "acme/signed.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/json_values.h"
#include "vek/str.h"

namespace {

/// One identifier per name, in the job's order; the authority judges repeated and empty ones.
Json::Value Identifiers() {
    Json::Value identifiers(Json::arrayValue);
    for (const std::string& name : str::Split(ambrin_data.aliases, " ")) {
        Json::Value identifier;
        identifier["type"] = "dns";
        identifier["value"] = str::puny::Encode(name);
        identifiers.append(identifier);
    }
    return identifiers;
}

std::string JoinTexts(const Json::Value& values) {
    std::string joined;
    for (const Json::Value& value : values) str::inpl::Append(joined, TextOf(value), " ");
    return joined;
}

}  // namespace

std::string NewOrder(QueryParams& params) {
    Trace("Ambrin new order");
    params.payload.clear();
    params.payload["identifiers"] = Identifiers();
    params.url = "newOrder";
    params.error_name = "order_failed";
    const AcmeResponse order = AcmePost(params, false);
    if (IsFailed(order)) return "";
    ambrin_data.WriteLog("processing", "order_success", "");
    ambrin_data.finalize_check = HeaderOf(order, "location");
    ambrin_data.finalize = TextOf(MemberOf(order.json, "finalize"));
    return JoinTexts(MemberOf(order.json, "authorizations"));
}
