#include "support/plain.h"

#include <algorithm>
#include <sstream>

#include "support/target.h"

namespace plain {

namespace {

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

bool IsSpace(char c) { return std::string_view(" \t\n\r\f\v").find(c) != std::string_view::npos; }

std::string Trim(const std::string& text) {
    std::string trimmed = text;
    while (!trimmed.empty() && IsSpace(trimmed.back())) trimmed.pop_back();
    while (!trimmed.empty() && IsSpace(trimmed.front())) trimmed.erase(0, 1);
    return trimmed;
}

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

Pattern::Pattern(const std::string& text) {
    fuzz::Hold(regcomp(&compiled_, text.c_str(), REG_EXTENDED) == 0, "a pattern is one");
}

Pattern::~Pattern() { regfree(&compiled_); }

std::size_t Pattern::Find(const std::string& text, std::size_t begin) const {
    regmatch_t place{static_cast<regoff_t>(begin), static_cast<regoff_t>(text.size())};
    if (regexec(&compiled_, text.c_str(), 1, &place, REG_STARTEND) != 0) return std::string::npos;
    return static_cast<std::size_t>(place.rm_so);
}

bool HasControl(const std::string& text) {
    static const Pattern of_several_bytes(
        "\xc2[\x80-\x9f]|\xd8\x9c|\xe2\x80[\x8e\x8f\xa8-\xae]|\xe2\x81[\xa6-\xa9]");
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }) ||
           of_several_bytes.Find(text) != std::string::npos;
}

std::string Join(const std::vector<std::string>& parts, const std::string& separator) {
    std::string joined;
    for (std::size_t i = 0; i < parts.size(); ++i) joined += (i == 0 ? "" : separator) + parts[i];
    return joined;
}

std::string Base64Url(const std::string& bytes) {
    std::string text;
    unsigned bits = 0;
    int count = 0;  // of bits that wait
    for (const char byte : bytes) {
        bits = (bits << 8U | static_cast<unsigned char>(byte)) & 0xFFFFU;
        for (count += 8; count >= 6; count -= 6) text += kBase64[bits >> (count - 6) & 63U];
    }
    if (count > 0) text += kBase64[bits << (6 - count) & 63U];
    for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
    return text;
}

std::string Base64Decode(const std::string& text) {
    fuzz::Hold(text.size() % 4 == 0, "base64 text has groups of four characters");
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.find('='))) {
        const std::size_t value = kBase64.find(c);
        fuzz::Hold(value != std::string_view::npos, "base64 text holds its alphabet alone");
        bits = (bits << 6U | static_cast<unsigned>(value)) & 0xFFFFU;
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 0xFFU);
    }
    fuzz::Hold((bytes.size() + 2) / 3 * 4 == text.size(), "base64 text is padded to the length of its bytes");
    return bytes;
}

std::string PercentDecode(const std::string& text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        fuzz::Hold(i + 2 < text.size(), "two digits follow a percent sign");
        decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
        i += 2;
    }
    return decoded;
}

std::vector<std::string> ShellWords(const std::string& command) {
    std::vector<std::string> words;
    bool in_word = false;
    for (std::size_t i = 0; i < command.size(); ++i) {
        if (command[i] == ' ') {
            in_word = false;
            continue;
        }
        if (!in_word) words.emplace_back();
        in_word = true;
        if (command[i] == '\'') {
            const std::size_t end = command.find('\'', i + 1);
            fuzz::Hold(end != std::string::npos, "every quote of a command line has its end");
            words.back() += command.substr(i + 1, end - i - 1);
            i = end;
        } else {
            if (command[i] == '\\') ++i;
            fuzz::Hold(i < command.size(), "a command line does not end with a backslash");
            words.back() += command[i];
        }
    }
    return words;
}

std::string XmlText(const std::string& value) {
    std::string text;
    for (const char c : value) {
        if (c == '<' || c == '>' || c == '&' || c == '"' || c == '\'' || c == '\r')
            text += "&#" + std::to_string(c) + ";";
        else
            text += c;
    }
    return text;
}

bool FitsXPath(const std::string& value) {
    return value.find('"') == std::string::npos || std::count(value.begin(), value.end(), '\'') <= 500;
}

std::string Digest(const std::string& text) {
    std::string digest;
    for (std::uint64_t part = 0; part < 4; ++part) {
        std::uint64_t hash = 14695981039346656037U + part;
        for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
        for (int shift = 0; shift < 64; shift += 8) digest += static_cast<char>(hash >> shift & 0xFFU);
    }
    return digest;
}

}  // namespace plain
