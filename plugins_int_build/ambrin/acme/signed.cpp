#include "acme/signed.h"

#include <sstream>

#include "acme/authority.h"
#include "acme/unsigned.h"
#include "ambrin_data.h"
#include "ambrin_log.h"
#include "encoding/encoding.h"
#include "encoding/json_values.h"
#include "vek/crypto.h"
#include "vek/rpc.h"
#include "vek/str.h"
#include "vek/test.h"

namespace {

std::string ResolveUrl(const QueryParams& params) {
    if (test::Url(params.url)) return params.url;
    return TextOf(MemberOf(params.directory, params.url));
}

/// The protected header without nonce and URL. A stored key header that is no JSON object leaves it empty,
/// and the authority refuses the request.
Json::Value AccountHeader(const std::string& kid) {
    if (kid.empty()) {
        Json::Value header = ParseAny(ambrin_data.modulus);
        return header.isObject() ? header : Json::Value();
    }
    Json::Value header;
    header["kid"] = kid;
    header["alg"] = "RS256";
    return header;
}

/// A part of a request, encoded as the authority takes it.
std::string Encode(const Json::Value& part) {
    if (kAuthority.style.final_line_feed) return GetEncodedJson(part);
    return Base64UrlEncode(str::Trim(WriteCompact(part)));
}

std::string Sign(SigningKey& key, const std::string& signing_input) {
    return Base64UrlEncode(vek_crypto::sign::Calculate(key.Of(ambrin_data.acmekey), signing_input));
}

/// The request's body: a JWS in flattened JSON form (RFC 7515 section 7.2.2).
std::string SignedBody(SigningKey& key, const Json::Value& header, const std::string& payload) {
    Json::Value body;
    const std::string protected_header = Encode(header);
    body["payload"] = payload;
    body["protected"] = protected_header;
    body["signature"] = Sign(key, protected_header + "." + payload);
    return WriteCompact(body);
}

AcmeResponse Exchange(const std::string& url, const std::string& request) {
    vek_rpc::HttpQuery query;
    query.AddHeader("Connection: Close");
    query.AddHeader("Content-Type: application/jose+json");
    query.AcceptHeader();
    query.AcceptAnyResponse();
    std::ostringstream raw;
    try {
        query.Post(url, request, raw);
    } catch (const std::exception& error) {
        ambrin_data.WriteLog("failed", "http_query_error", error.what() + std::string("<br>url: ") + url);
        return {-1, ""};
    }
    Trace("Acme response '%s'\nwith code '%d'", raw.str(), query.Status());
    return {query.Status(), raw.str()};
}

/// Signs the payload under this nonce and sends it to the header's URL.
AcmeResponse Send(SigningKey& key, Json::Value& header, const std::string& nonce,
                  const std::string& payload) {
    header["nonce"] = nonce;
    const std::string url = TextOf(header["url"]);
    const std::string request = SignedBody(key, header, payload);
    Trace("Acme request url '%s'", url);
    Trace("Acme request body '%s'", request);
    return Exchange(url, request);
}

/// The nonce for one more try of a request whose own one was refused (RFC 8555 section 6.5); empty for any
/// other answer.
std::string FurtherNonce(const AcmeResponse& response) {
    const std::string type = TextOf(MemberOf(response.json, "type"));
    if (!IsFailed(response) || type != "urn:ietf:params:acme:error:badNonce") return "";
    return HeaderOf(response, "replay-nonce");
}

}  // namespace

AcmeResponse AcmePost(QueryParams& params, bool post_as_get) {
    ambrin_log.Write(vek_log::kFunction, "%s", "AcmeResponse AcmePost(QueryParams&, bool)");
    const std::string kid = ambrin_data.kid;
    Trace("kid '%s'", kid);
    Json::Value header = AccountHeader(kid);
    header["url"] = ResolveUrl(params);
    const std::string nonce = GetNonce(params);
    const std::string payload = post_as_get ? "" : Encode(params.payload);
    AcmeResponse response = Send(params.key, header, nonce, payload);
    for (int tries = 0; tries < kAuthority.style.tries_with_further_nonces; ++tries) {
        const std::string further_nonce = FurtherNonce(response);
        if (further_nonce.empty()) break;
        Trace("nonce refused, one more try");
        response = Send(params.key, header, further_nonce, payload);
    }
    const bool exchanged = response.code != -1;
    if (exchanged && IsFailed(response)) {
        const std::string event = params.error_name.empty() ? "acme_request_error" : params.error_name;
        ambrin_data.WriteLog("failed", event, GetACMEError(response));
    }
    return response;
}
