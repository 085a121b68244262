#include "zelvek/panel/unfetched_notice.h"

#include "zelvek/jobs/authority_answer.h"
#include "zelvek/store/problems.h"

namespace zelvek {

void TellOfUnfetched(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
                     const std::string& now) {
    const std::string words = events.empty() ? "" : ReadAnswer(events.back()).words;
    problems::Raise(transaction, {.name = "certificate_not_fetched",
                                  .level = "warning",
                                  .owner = "root",
                                  .time = now,
                                  .parameters = {{"name", job.certname},
                                                 {"authority", job.authority},
                                                 {"due", job.due},
                                                 {"reason", words.empty() ? "it has said nothing" : words}},
                                  .user = job.user_name,
                                  .about = job.folder});
}

}  // namespace zelvek
