#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelvek/base/error.h"

namespace zelvek {

/// One answer of the service: values under "doc", and lists of elements that hold values.
class XmlAnswer {
public:
    XmlAnswer();
    ~XmlAnswer();
    XmlAnswer(XmlAnswer&&) noexcept;

    /// An element that takes values; valid while the answer lives.
    class Element {
    public:
        /// Adds a child element with this text, which comes out of the XML just as it went in.
        Element& Value(const std::string& key, const std::string& text);
        Element& Value(const std::string& key, long long number);
        Element& Flag(const std::string& key, bool on);
        Element& Attribute(const std::string& key, const std::string& text);
        Element Child(const std::string& key);

    private:
        friend class XmlAnswer;
        explicit Element(void* node) : node_(node) {}
        void* node_;
    };

    Element Doc();

    /// A further "elem" of the list.
    Element Elem();

    std::string Text() const;

    /// Becomes the answer that had this text.
    void Load(const std::string& text);

private:
    struct Document;
    std::unique_ptr<Document> document_;
};

/// The answer to a query that failed: the one place where an error takes the transport's form.
std::string ErrorAnswer(const Error& error);

}  // namespace zelvek
