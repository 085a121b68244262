#pragma once

#include <string>

#include "acme/request.h"

/// Places a new order for the job's names (RFC 8555 section 7.4) and keeps its URLs in the record. `params`
/// must hold the directory, the record a usable account. Returns the authorization URLs joined by blanks;
/// empty when the order was refused (the record is unchanged then) or its answer named none.
std::string NewOrder(QueryParams& params);
