#include "vek/xml.h"

#include <pugixml.hpp>

#include <algorithm>

#include "vek/err.h"
#include "vek/str.h"

namespace vek_xml {
namespace {

// Texts stay exactly as they came: white space alone is text, line ends and leading blanks are kept.
constexpr unsigned kAsWritten = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_ws_pcdata;

pugi::xml_node NodeOf(void* handle) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(handle)); }

std::string TextOf(const pugi::xml_node& element) {
    std::string text;
    for (const auto& child : element.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) text += child.value();
    }
    return text;
}

}  // namespace

struct Xml::Document {
    pugi::xml_document tree;
};

std::string Node::Text() const { return TextOf(NodeOf(handle_)); }

std::string Node::Value(const std::string& child) const {
    return TextOf(NodeOf(handle_).child(child.c_str()));
}

std::string Node::Attribute(const std::string& name) const {
    return NodeOf(handle_).attribute(name.c_str()).value();
}

std::vector<Node> Node::Children(const std::string& name) const {
    std::vector<Node> nodes;
    for (const auto& child : NodeOf(handle_).children(name.c_str())) {
        nodes.push_back(Node(child.internal_object()));
    }
    return nodes;
}

Xml::Xml(const std::string& text) {
    // The parser would take the first NUL byte for the end.
    if (text.find('\0') != std::string::npos) throw vek_err::Error("xml", "parse", "NUL byte");
    auto document = std::make_shared<Document>();
    const auto parsed = document->tree.load_buffer(text.data(), text.size(), kAsWritten);
    if (!parsed) {
        throw vek_err::Error("xml", "parse",
                             parsed.description() + (" at byte " + std::to_string(parsed.offset)));
    }
    document_ = std::move(document);
}

Node Xml::GetNode(const std::string& xpath) const {
    const auto nodes = GetNodes(xpath);
    return nodes.empty() ? Node() : nodes.front();
}

std::vector<Node> Xml::GetNodes(const std::string& xpath) const try {
    if (xpath.find('\0') != std::string::npos) throw vek_err::Error("xml", "xpath", "NUL byte in " + xpath);
    auto found = document_->tree.select_nodes(xpath.c_str());
    found.sort();
    std::vector<Node> nodes;
    for (const auto& item : found) {
        if (item.node().type() == pugi::node_element) nodes.push_back(Node(item.node().internal_object()));
    }
    return nodes;
} catch (const pugi::xpath_exception& e) {
    throw vek_err::Error("xml", "xpath", xpath + " (" + e.what() + ")");
}

std::string EscapePropValue(const std::string& value) {
    if (value.find('\'') == std::string::npos) return "'" + value + "'";
    if (value.find('"') == std::string::npos) return '"' + value + '"';
    // XPath 1.0 has no escape inside a string; only joined pieces can hold both quotes. Each is as long as
    // one kind of quote allows, because the library refuses expressions with too many of them.
    std::string pieces;
    for (std::size_t at = 0; at < value.size();) {
        const std::size_t single_at = std::min(value.find('\'', at), value.size());
        const std::size_t double_at = std::min(value.find('"', at), value.size());
        const std::size_t end = std::max(single_at, double_at);
        const char quote = single_at == end ? '\'' : '"';
        str::inpl::Append(pieces, quote + value.substr(at, end - at) + quote, ",");
        at = end;
    }
    return "concat(" + pieces + ")";
}

}  // namespace vek_xml
