#include "zelvek/records/event_words.h"

#include <array>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/text.h"

namespace zelvek::records {

namespace {

struct EventWords {
    std::string_view event, meaning;
};

constexpr std::array kEvents{
    EventWords{"registration_try", "registers an account"},
    EventWords{"registration_success", "the account is registered"},
    EventWords{"registration_exist", "the account was registered before"},
    EventWords{"registration_fail", "the authority registers no account"},
    EventWords{"order_success", "the order is placed"},
    EventWords{"order_failed", "the authority takes no order"},
    EventWords{"authorization_try", "asks how a name is to be proved"},
    EventWords{"authorization_success", "the authority has told how"},
    EventWords{"authorization_fail", "the authority does not tell how a name is to be proved"},
    EventWords{"challenge_start", "publishes the answers"},
    EventWords{"challenge_created", "the answers are published"},
    EventWords{"challenge_success", "a name is proved"},
    EventWords{"challenge_fail", "the authority refuses a name's proof"},
    EventWords{"challenge_req_attempt", "the authority has found a name not proved, or did not say in time"},
    EventWords{"cert_order_success", "the order is fulfilled"},
    EventWords{"cert_order_fail", "the authority refuses the certificate"},
    EventWords{"cert_order_req_attempt", "the authority did not issue the certificate in time"},
    EventWords{"cert_recived", "the certificate has come"},
    EventWords{"cert_recive_failed", "the authority does not hand out the certificate"},
    EventWords{"hardreplace_error", "the certificate cannot be installed"},
    EventWords{"acme_request_error", "the authority refuses a request"},
    EventWords{"acme_response_error", "the authority's answer cannot be read"},
    EventWords{"http_query_error", "the authority cannot be reached"},
    EventWords{"panel_error", "the service refuses what the run asks for"},
    EventWords{"certificate_imported", "the certificate was taken over as it is"},
    EventWords{"job_edited", "somebody has edited the job; its names are"},
    EventWords{"timeout_error", "the job had no certificate after a day, and is stopped"},
};

}  // namespace

std::string WordsOfEvent(const std::string& event, const std::string& detail) {
    std::string words = event;
    for (const EventWords& known : kEvents) {
        if (known.event == event) words = known.meaning;
    }
    const std::string text = TextOfHtml(detail);
    str::inpl::Append(words, text, words.empty() || text.empty() ? "" : ": ");
    return WithoutControls(words, ' ');
}

}  // namespace zelvek::records
