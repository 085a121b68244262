#include "flow/finalization.h"

#include "acme/authority.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/json_values.h"
#include "flow/authorization.h"

std::string GetCertOrderUrl(QueryParams& params, const std::string& csr) {
    Trace("Ambrin get cert order url");
    params.url = ambrin_data.finalize;
    params.payload.clear();
    params.payload["csr"] = csr;
    const std::string poll_url = kAuthority.style.polls_order ? ambrin_data.finalize_check : "";
    const AcmeResponse order = WaitToResolve(params, "cert_order", poll_url);
    if (IsFailed(order)) return "";
    return TextOf(MemberOf(order.json, "certificate"));
}
