#pragma once

#include <string>

#include "acme/request.h"
#include "acme/response.h"

/// The two resources that need no signature. A failed exchange or response is written to the job log.

/// GET of `params.url`, an absolute URL. One exchange; the response is returned whether it failed or not.
AcmeResponse AcmeGet(QueryParams& params);

/// Fetches the directory (RFC 8555 section 7.1.1) into `params.directory`, which a failed response leaves
/// alone; `params.url` holds the directory's URL afterwards.
AcmeResponse GetDirectory(QueryParams& params);

/// A fresh nonce (RFC 8555 section 7.2), or an empty text when the authority gave none.
std::string GetNonce(const QueryParams& params);
