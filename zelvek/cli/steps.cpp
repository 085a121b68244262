#include "zelvek/cli/steps.h"

#include <array>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/text.h"

namespace zelvek::cli {

namespace {

constexpr std::size_t kDateLength = sizeof("YYYY-MM-DD ") - 1;
constexpr std::size_t kTimeLength = sizeof("YYYY-MM-DD HH:MM:SS") - 1;

/// What the plug-in writes at a step, up to a value in quotes, and what that means; "%" is the value's place.
struct Words {
    std::string_view beginning, meaning;
};

constexpr std::array kTraces{
    Words{"start '", "the run begins for the certificate %"},
    Words{"create csr for domains '", "makes a key and a request for %"},
    Words{"get challendes", "looks for an account at the authority"},
    Words{"no need for new challenges", "goes on with the order of an earlier run"},
    Words{"Ambrin registration", "registers an account"},
    Words{"registration kid '", "the account is %"},
    Words{"Ambrin new order", "places the order"},
    Words{"autorization url '", "asks how a name is to be proved"},
    Words{"Challenge already complete", "this name is proved already"},
    Words{"domain '", "has to prove %"},
    Words{"Ambrin creating challenge", "publishes an answer"},
    Words{"cant find valid record", "a record is not visible at its name server yet"},
    Words{"next attempt '", "waits for the records, until %"},
    Words{"Ambrin start challenges", "tells the authority that the answers are there"},
    Words{"wait for '", "waits for the authority"},
    Words{"Ambrin deleteing challenge", "takes an answer back"},
    Words{"Ambrin get cert order url", "asks for the certificate"},
    Words{"Ambrin cert is received", "the certificate has come, and is installed"},
    Words{"Ambrin stop trying", "stops the job"},
};

constexpr std::array kEvents{
    Words{"registration_try", "registers an account"},
    Words{"registration_success", "the account is registered"},
    Words{"registration_exist", "the account was registered before"},
    Words{"registration_fail", "the authority registers no account"},
    Words{"order_success", "the order is placed"},
    Words{"order_failed", "the authority takes no order"},
    Words{"authorization_try", "asks how a name is to be proved"},
    Words{"authorization_success", "the authority has told how"},
    Words{"authorization_fail", "the authority does not tell how a name is to be proved"},
    Words{"challenge_start", "publishes the answers"},
    Words{"challenge_created", "the answers are published"},
    Words{"challenge_success", "a name is proved"},
    Words{"challenge_fail", "the authority refuses a name's proof"},
    Words{"challenge_req_attempt", "the authority has found a name not proved, or did not say in time"},
    Words{"cert_order_success", "the order is fulfilled"},
    Words{"cert_order_fail", "the authority refuses the certificate"},
    Words{"cert_order_req_attempt", "the authority did not issue the certificate in time"},
    Words{"cert_recived", "the certificate has come"},
    Words{"cert_recive_failed", "the authority does not hand out the certificate"},
    Words{"hardreplace_error", "the certificate cannot be installed"},
    Words{"acme_request_error", "the authority refuses a request"},
    Words{"acme_response_error", "the authority's answer cannot be read"},
    Words{"http_query_error", "the authority cannot be reached"},
    Words{"panel_error", "the service refuses what the run asks for"},
    Words{"certificate_imported", "the certificate was taken over as it is"},
    Words{"job_edited", "somebody has edited the job; its names are"},
    Words{"timeout_error", "the job had no certificate after a day, and is stopped"},
};

/// Cuts "[7]", or another word, off the front of a line's text.
std::string NextWord(std::string& text) { return str::GetWord(text, ' '); }

/// The value in quotes that follows a step's beginning, where the line does not end before.
std::string ValueIn(const std::string& text, std::size_t begin) {
    const std::size_t end = text.rfind('\'');
    return text.substr(begin, end == std::string::npos || end < begin ? end : end - begin);
}

std::string Meaning(const Words& words, const std::string& text) {
    std::string meaning(words.meaning);
    const std::size_t place = meaning.find('%');
    if (place != std::string::npos)
        meaning.replace(place, 1, Printable(ValueIn(text, words.beginning.size())));
    return meaning;
}

std::string MeaningOfTrace(const std::string& text) {
    for (const Words& words : kTraces) {
        if (text.starts_with(words.beginning)) return Meaning(words, text);
    }
    return "";
}

/// The text's part that tells of a step, by the level of its line.
std::string StepIn(const std::string& level, std::string text) {
    NextWord(text);  // the module
    if (level == "WARNING") return "note: " + Printable(text);
    if (level == "ERROR") return "failed: " + Printable(text);
    if (level != "TRACE") return "";
    NextWord(text);  // the source line
    return MeaningOfTrace(text);
}

}  // namespace

std::string StepOfLine(const std::string& line) {
    if (line.size() <= kTimeLength + 1) return "";
    std::string text = line.substr(kTimeLength + 1);
    NextWord(text);  // the process
    const std::string level = NextWord(text);
    const std::string step = StepIn(level, text);
    return step.empty() ? "" : line.substr(kDateLength, kTimeLength - kDateLength) + "  " + step;
}

std::string WordsOfEvent(const std::string& event, const std::string& detail) {
    std::string words = event;
    for (const Words& known : kEvents) {
        if (known.beginning == event) words = known.meaning;
    }
    const std::string text = TextOfHtml(detail);
    str::inpl::Append(words, text, words.empty() || text.empty() ? "" : ": ");
    return WithoutControls(words, ' ');
}

std::string StepOfEvent(const vek_xml::Node& event) {
    const std::string time = event.Value("time");
    const std::string words = WordsOfEvent(event.Value("event"), event.Value("detail"));
    return (time.size() < kTimeLength ? time : time.substr(kDateLength)) + "  " +
           (event.Value("state") == "failed" ? "failed: " : "") + words;
}

}  // namespace zelvek::cli
