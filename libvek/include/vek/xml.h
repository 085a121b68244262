#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vek_xml {

/// One element of a document; valid only while the document lives.
class Node {
public:
    Node() = default;
    explicit operator bool() const { return handle_ != nullptr; }

    /// The element's text: all character data directly under it; empty for no element.
    std::string Text() const;

    /// The text of its first child element of that name; empty when there is none.
    std::string Value(const std::string& child) const;

    /// An attribute's value; empty when there is none.
    std::string Attribute(const std::string& name) const;

    /// Its child elements of that name in their order. Where every element of a list is asked for its own
    /// children this takes time with their number alone; an XPath expression for each begins at the root.
    std::vector<Node> Children(const std::string& name) const;

private:
    friend class Xml;
    explicit Node(void* handle) : handle_(handle) {}
    void* handle_ = nullptr;
};

/// A parsed document. Copies share it.
class Xml {
public:
    /// Errors: vek_err::Error("xml", "parse", reason). White space is kept; entities that a document
    /// defines are not expanded.
    explicit Xml(const std::string& text);

    /// The first element that an XPath expression selects. Errors: vek_err::Error("xml", "xpath",
    /// expression).
    Node GetNode(const std::string& xpath) const;
    std::vector<Node> GetNodes(const std::string& xpath) const;

private:
    struct Document;
    std::shared_ptr<const Document> document_;
};

/// `value` as a string of an XPath expression, quotes included, whatever quotes it holds itself.
std::string EscapePropValue(const std::string& value);

}  // namespace vek_xml
