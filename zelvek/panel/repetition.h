#pragma once

#include "zelvek/panel/functions.h"

/// For the functions that must not do twice what they are asked once. A caller whose answer was lost sends
/// its query again, with the identity that it had before.
namespace zelvek {

/// Whether this query has been carried out; `answer` is the first one's then.
bool AnsweredBefore(Transaction& transaction, const Query& query, XmlAnswer& answer);

/// Keeps the answer together with what the transaction changes.
void RememberAnswer(Transaction& transaction, const Query& query, const XmlAnswer& answer);

}  // namespace zelvek
