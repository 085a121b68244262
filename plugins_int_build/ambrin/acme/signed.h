#pragma once

#include "acme/request.h"
#include "acme/response.h"

/// Sends one request signed with the job's account key (RFC 8555 section 6.2): by key id when the job has
/// one, with the public key itself otherwise. `post_as_get` sends an empty payload (RFC 8555 section 6.3),
/// else `params.payload` goes out. Two exchanges: one for a nonce, one for the request; only an answer
/// "badNonce" is followed by further tries, with the nonces that come with it, where the authority's style
/// has them. Returns the response whether it failed or not; its code is -1 when the exchange itself failed. A
/// failed exchange and a failed response are written to the job log, the response under `params.error_name`.
/// Errors: those of decoding the account key and of signing.
AcmeResponse AcmePost(QueryParams& params, bool post_as_get);
