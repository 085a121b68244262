#include "zelvek/cli/steps.h"

#include <array>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/records/event_words.h"

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

std::string StepOfEvent(const vek_xml::Node& event) {
    const std::string time = event.Value("time");
    const std::string words = records::WordsOfEvent(event.Value("event"), event.Value("detail"));
    return (time.size() < kTimeLength ? time : time.substr(kDateLength)) + "  " +
           (event.Value("state") == "failed" ? "failed: " : "") + words;
}

}  // namespace zelvek::cli
