// The texts of queries and answers.
#include <algorithm>

#include "vek/client.h"
#include "vek/err.h"

namespace vek_client {
namespace {

// RFC 3986 section 2.3: what needs no percent-encoding anywhere.
bool IsUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

std::string PercentEncode(const std::string& value) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : value) {
        if (IsUnreserved(c)) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += '%';
        encoded += kDigits[byte >> 4U];
        encoded += kDigits[byte & 15U];
    }
    return encoded;
}

vek_xml::Xml ParseAnswer(const std::string& body) try {
    return vek_xml::Xml(body);
} catch (const vek_err::Error& e) {
    throw vek_err::Error("client", "protocol", e.what());
}

}  // namespace

Result::Result(const std::string& body) : xml_(ParseAnswer(body)) {
    if (!xml_.GetNode("/doc")) throw vek_err::Error("client", "protocol", "the answer has no doc element");
    const auto error = xml_.GetNode("/doc/error");
    if (!error) return;
    const std::string type = error.Attribute("type");
    const std::string message = error.Value("msg");
    throw vek_err::Error::Reported(type, message.empty() ? type : message);
}

std::string Result::value(const std::string& key) const { return xml_.GetNode("/doc").Value(key); }

std::string Bind(const std::string& text, const std::vector<std::string>& values) {
    std::string bound;
    auto value = values.begin();
    for (const char c : text) {
        if (c == '?' && value != values.end()) {
            bound += PercentEncode(*value++);
        } else {
            bound += c;
        }
    }
    return bound;
}

std::string Bind(const std::string& text, const std::map<std::string, std::string>& entries) {
    std::string bound = text;
    for (const auto& [key, value] : entries) bound += '&' + PercentEncode(key) + '=' + PercentEncode(value);
    return bound;
}

}  // namespace vek_client
