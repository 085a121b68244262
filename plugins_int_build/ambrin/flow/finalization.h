#pragma once

#include <string>

#include "acme/request.h"

/// Finalizes the order (RFC 8555 section 7.4) with a certificate signing request (DER, base64url-encoded) and
/// waits until the order is valid; polls go to the order's URL or to the finalize URL itself, as the
/// authority's style has it. Returns the certificate's URL; empty when finalization failed or the order did
/// not become valid.
std::string GetCertOrderUrl(QueryParams& params, const std::string& csr);
