#include "zelvek/panel/repetition.h"

#include "vek/date.h"
#include "zelvek/store/answered.h"

namespace zelvek {

bool AnsweredBefore(Transaction& transaction, const Query& query, XmlAnswer& answer) {
    if (query.identity.empty()) return false;
    const auto before = answered::Find(transaction, query.identity);
    if (before) answer.Load(*before);
    return before.has_value();
}

void RememberAnswer(Transaction& transaction, const Query& query, const XmlAnswer& answer) {
    if (query.identity.empty()) return;
    answered::Put(transaction, query.identity, answer.Text(), vek_date::DateTime().AsDateTime());
}

}  // namespace zelvek
