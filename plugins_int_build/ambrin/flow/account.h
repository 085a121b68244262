#pragma once

#include "acme/request.h"

/// Which account a run uses. The driver asks these four in this order and stops at the first that is true.
/// `params` must hold the directory. Errors of the signed requests and of the key tools travel to the caller.

/// Whether the job's stored account is valid (RFC 8555 section 7.1.2). No request for a job without an
/// account (false) or one whose check is to be skipped (true).
bool CheckAccount(QueryParams& params);

/// Puts the panel-wide default account into the record, where it stays, and checks it. False, with nothing
/// changed, when there is none or it is the account in use. When the tool cannot read
/// the default key, the record holds the default key id and key, still with the old key header; when a signal
/// ends the reading, it holds the old account.
bool CheckDefaultAccount(QueryParams& params);

/// Counts a failed check of a stored account; true while the job's limit of retries is not exceeded. A job
/// without a complete account has nothing to retry.
bool NeedRetryAccountCheck();

/// Makes a new key and registers an account for it (RFC 8555 section 7.3). The new key replaces the stored
/// one before the authority has answered. True when the authority created the account or knew it.
bool Registration(QueryParams& params);
