// A service's answer: any body is read or refused by the framework's own error; values and errors come as
// they were sent.
#include "support/plain.h"
#include "support/target.h"
#include "vek/client.h"
#include "vek/err.h"

namespace {

void HoldAnyBody(const std::string& body) try {
    const vek_client::Result result(body);
    fuzz::Hold(static_cast<bool>(result.xml().GetNode("/doc")), "an answer has a doc element");
    fuzz::Hold(!result.xml().GetNode("/doc/error"), "an answer that reports an error is no result");
    for (const char* key : {"elid", "certname", "", "a b", "*", "error"})
        fuzz::HoldEqual(result.value(key), result.xml().GetNode("/doc").Value(key),
                        "a value is the text under doc");
    for (const vek_xml::Node& element : result.xml().GetNodes("/doc/elem"))
        fuzz::Hold(static_cast<bool>(element), "a list has elements");
} catch (const vek_err::Error& error) {
    fuzz::Hold(*error.what() != '\0' || error.type().empty(), "an error says something");
}

void HoldValue(const std::string& value) {
    const vek_client::Result result("<doc><other/><v>" + plain::XmlText(value) + "</v></doc>");
    fuzz::HoldEqual(result.value("v"), value, "a value travels unchanged");
    fuzz::HoldEqual(result.value("other") + result.value("none"), "", "what is not there is empty");
}

void HoldError(const std::string& type, const std::string& message) {
    const std::string error =
        "<error type=\"" + plain::XmlText(type) + "\"><msg>" + plain::XmlText(message) + "</msg></error>";
    try {
        const vek_client::Result result("<doc><v>1</v>" + error + "</doc>");
        fuzz::Hold(false, "an error is raised");
    } catch (const vek_err::Error& raised) {
        fuzz::HoldEqual(raised.type(), type, "an error's type is the answer's");
        fuzz::HoldEqual(raised.what(), message.empty() ? type : message, "an error's text is the answer's");
    }
}

std::string WithoutNul(std::string text) {
    std::erase(text, '\0');  // which no XML can carry
    return text;
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string body = TakeRest(input);
    HoldAnyBody(body);
    HoldAnyBody("<doc>" + body + "</doc>");
    const std::string value = WithoutNul(body);
    HoldValue(value);
    const std::size_t half = value.size() / 2;
    HoldError(value.substr(0, half), value.substr(half));
}
