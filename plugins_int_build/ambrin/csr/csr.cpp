#include "csr/csr.h"

#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/encoding.h"
#include "encoding/tool.h"
#include "vek/str.h"

void GetCSR(std::string& csr, std::string& key) {
    Trace("create csr for domains '%s'", ambrin_data.aliases);
    // the job's further parameters are in query form already and go out as they stand
    ambrin_data.client.Query("func=sslcert.csr.edit&domain=?&su=?&" + ambrin_data.csr_internal_request,
                             ambrin_data.aliases, ambrin_data.user_name);
    const std::string record = str::puny::Encode(ambrin_data.certname);
    const vek_client::Result made = ambrin_data.client.Query("func=sslcert.csr.edit&out=xml&elid=?", record);
    csr = made.value("csr_req");
    key = made.value("csr_pk");
    Trace("we got csr\n '%s'", csr);
    ambrin_data.client.Query("func=sslcert.csr.delete&elid=?", record);
}

std::string GetEncodedDERCsr(const std::string& csr) {
    return Base64UrlEncode(RunFilter("openssl req -outform DER", csr, "derencode_error"));
}
