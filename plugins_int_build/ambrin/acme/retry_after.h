#pragma once

#include "acme/response.h"

/// The pause in seconds that the response's "retry-after" asks for (RFC 9110 section 10.2.3); 1 where it asks
/// for none. A number is taken as it stands. A date counts where the authority's style has dates: the seconds
/// until then, at least 1 and at most a day.
int RetryAfter(const AcmeResponse& response);
