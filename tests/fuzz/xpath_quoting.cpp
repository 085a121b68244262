// XPath quoting: a look-up by any value finds just the elements of that value.
#include "support/plain.h"
#include "support/target.h"
#include "vek/xml.h"

void fuzz::Target(FuzzedDataProvider& input) {
    std::vector<std::string> values;
    while (input.remaining_bytes() > 0 && values.size() < 8) {
        values.push_back(TakeText(input));
        std::erase(values.back(), '\0');  // which no XML can carry
    }
    std::string text = "<doc><elem><other>1</other></elem>";
    for (std::size_t i = 0; i < values.size(); ++i)
        text +=
            "<elem id=\"" + std::to_string(i) + "\"><name>" + plain::XmlText(values[i]) + "</name></elem>";
    const vek_xml::Xml document(text + "</doc>");

    for (const std::string& value : values) {
        if (!plain::FitsXPath(value)) continue;
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < values.size(); ++i)
            if (values[i] == value) expected.push_back(std::to_string(i));
        const std::string path = "/doc/elem[name=" + vek_xml::EscapePropValue(value) + "]";
        std::vector<std::string> found;
        for (const vek_xml::Node& element : document.GetNodes(path)) found.push_back(element.Attribute("id"));
        Hold(found == expected, "the elements of that value are found, and no other");
        HoldEqual(document.GetNode(path).Value("name"), value, "the first one is given, with its value");
    }
}
