// What the service answers: any text that its XML can carry reaches the framework's client unchanged, and so
// does an error.
#include <algorithm>

#include "support/plain.h"
#include "support/target.h"
#include "vek/client.h"
#include "vek/err.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/xml_answer.h"

namespace {

void HoldText(const std::string& text) {
    const std::string made = zelvek::names::MakeText(text);
    fuzz::Hold(zelvek::names::IsText(made), "what is made a text is one");
    fuzz::HoldEqual(zelvek::names::MakeText(made), made, "a text is left as it is");
    fuzz::Hold((made == text) == zelvek::names::IsText(text), "only what is no text is changed");
}

/// A value with hundreds of quotes of both kinds in turn is too much for the library, which says so.
void HoldFound(const vek_client::Result& result, const std::string& value) try {
    if (!plain::FitsXPath(value)) return;
    const auto found = result.xml().GetNode("/doc/elem[name=" + vek_xml::EscapePropValue(value) + "]");
    fuzz::HoldEqual(found.Value("name"), value, "an element is found by its value");
} catch (const vek_err::Error& error) {
    const auto quotes = std::count(value.begin(), value.end(), '"');
    fuzz::Hold(error.type() == "xpath" && quotes > 100, "a look-up fails for its many quotes alone");
}

void HoldValues(const std::string& value, const std::string& other) {
    zelvek::XmlAnswer answer;
    answer.Doc().Value("a", value).Value("number", -7).Flag("on", true).Value("b", other);
    answer.Elem().Value("name", value);
    answer.Elem().Attribute("kind", value).Value("name", other);
    const vek_client::Result result(answer.Text());
    fuzz::HoldEqual(result.value("a"), value, "a value arrives as it was given");
    fuzz::HoldEqual(result.value("b"), other, "and so does the next");
    fuzz::HoldEqual(result.value("number") + result.value("on"), "-7on", "numbers and flags are words");
    const auto elements = result.xml().GetNodes("/doc/elem");
    fuzz::Hold(elements.size() == 2, "a list has its elements");
    fuzz::HoldEqual(elements[0].Value("name"), value, "a list's value arrives");
    fuzz::HoldEqual(elements[1].Attribute("kind"), value, "an attribute arrives");
    HoldFound(result, value);
}

void HoldError(const std::string& value, const std::string& message) {
    const std::string body = zelvek::ErrorAnswer({zelvek::Code::kStale, value, message, message});
    try {
        const vek_client::Result result(body);
        fuzz::Hold(false, "an error is raised");
    } catch (const vek_err::Error& error) {
        fuzz::HoldEqual(error.type(), "stale", "an error keeps its type");
        fuzz::HoldEqual(error.what(), message.empty() ? "stale" : zelvek::names::MakeText(message),
                        "an error keeps its text");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string a = TakeText(input);
    const std::string b = TakeRest(input);
    HoldText(a);
    HoldText(b);
    HoldValues(zelvek::names::MakeText(a), zelvek::names::MakeText(b));
    HoldError(a, b);
}
