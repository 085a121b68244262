#include "zelvek/panel/xml_answer.h"

#include <pugixml.hpp>
#include <sstream>

#include "zelvek/base/names.h"

namespace zelvek {

struct XmlAnswer::Document {
    pugi::xml_document xml;
};

namespace {

pugi::xml_node AsNode(void* node) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node)); }

}  // namespace

XmlAnswer::XmlAnswer() : document_(std::make_unique<Document>()) { document_->xml.append_child("doc"); }
XmlAnswer::~XmlAnswer() = default;
XmlAnswer::XmlAnswer(XmlAnswer&&) noexcept = default;

XmlAnswer::Element XmlAnswer::Doc() { return Element(document_->xml.document_element().internal_object()); }

XmlAnswer::Element XmlAnswer::Elem() { return Doc().Child("elem"); }

XmlAnswer::Element XmlAnswer::Element::Child(const std::string& key) {
    return Element(AsNode(node_).append_child(key.c_str()).internal_object());
}

XmlAnswer::Element& XmlAnswer::Element::Value(const std::string& key, const std::string& text) {
    AsNode(node_).append_child(key.c_str()).append_child(pugi::node_pcdata).set_value(text.c_str());
    return *this;
}

XmlAnswer::Element& XmlAnswer::Element::Value(const std::string& key, long long number) {
    return Value(key, std::to_string(number));
}

XmlAnswer::Element& XmlAnswer::Element::Flag(const std::string& key, bool on) {
    return Value(key, on ? "on" : "off");
}

XmlAnswer::Element& XmlAnswer::Element::Attribute(const std::string& key, const std::string& text) {
    AsNode(node_).append_attribute(key.c_str()).set_value(text.c_str());
    return *this;
}

std::string XmlAnswer::Text() const {
    std::ostringstream out;
    // Raw: indentation would become part of the values.
    document_->xml.save(out, "", pugi::format_raw, pugi::encoding_utf8);
    return out.str();
}

void XmlAnswer::Load(const std::string& text) {
    document_->xml.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata);
}

std::string ErrorAnswer(const Error& error) {
    XmlAnswer answer;
    // What is refused may be just what no XML can carry.
    answer.Doc()
        .Child("error")
        .Attribute("type", Word(error.code()))
        .Attribute("object", names::MakeText(error.object()))
        .Attribute("value", names::MakeText(error.value()))
        .Value("msg", names::MakeText(error.sentence()));
    return answer.Text();
}

}  // namespace zelvek
