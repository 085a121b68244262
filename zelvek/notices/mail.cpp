#include "zelvek/notices/mail.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/notices/letter.h"

namespace zelvek::notices {

namespace {

constexpr std::size_t kMostOfLine = 76;
constexpr std::size_t kMostOfSubject = 200;  // bytes; what a list of mails shows is less

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// The characters of a text in pieces of at most `most` bytes.
std::vector<std::string> Pieces(const std::string& text, std::size_t most) {
    std::vector<std::string> pieces{""};
    for (std::size_t at = 0; at < text.size();) {
        const auto character = CharacterAt(text, at);
        const std::size_t length = character ? character->length : 1;
        if (pieces.back().size() + length > most) pieces.emplace_back();
        pieces.back() += text.substr(at, length);
        at += length;
    }
    return pieces;
}

/// Plain words, folded at blanks; nothing for a value that has to be encoded.
std::string PlainLines(const std::string& name, const std::string& value) {
    if (!IsAscii(value) || value.find("=?") != std::string::npos) return "";
    const std::string lines = Wrapped(name + ": " + value, kMostOfLine - 1);
    std::istringstream input(lines);
    for (std::string line; std::getline(input, line);) {
        if (line.size() >= kMostOfLine) return "";
    }
    // A line of the name alone would be taken for an empty field by some programs.
    if (lines.starts_with(name + ":\n")) return "";
    return str::Replace(lines, "\n", "\r\n ") + "\r\n";
}

/// A header line, folded: encoded words where the value is no ASCII, or has a word too long for a line.
std::string HeaderLine(const std::string& name, const std::string& text) {
    std::string value;
    for (const std::string& word : str::Split(WithoutControls(text, ' '), " "))
        str::inpl::Append(value, word, " ");
    std::string plain = PlainLines(name, value);
    if (!plain.empty()) return plain;
    constexpr std::size_t kMostOfWord = 39;  // bytes; 64 characters when encoded
    std::string line = name + ":";
    for (const std::string& piece : Pieces(value, kMostOfWord))
        line += " =?utf-8?B?" + str::base64::Encode(piece) + "?=\r\n";
    return line;
}

std::string Hex(char c) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'=', kDigits[byte >> 4], kDigits[byte & 0xf]};
}

/// One line in quoted-printable (RFC 2045 section 6.7), with soft line ends. "From " and "." at a line's
/// beginning are encoded, since some programs on the way change such lines.
std::string QuotedLine(const std::string& line) {
    std::string quoted;
    std::size_t column = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool blank_at_end = (c == ' ' || c == '\t') && i + 1 == line.size();
        const bool plain = c >= ' ' && c <= '~' && c != '=' && !blank_at_end;
        const std::size_t length = plain ? 1 : 3;
        if (column + length >= kMostOfLine) {
            quoted += "=\r\n";
            column = 0;
        }
        const bool touchy = column == 0 && (c == '.' || line.compare(i, 5, "From ") == 0);
        const std::string part = plain && !touchy ? std::string(1, c) : Hex(c);
        quoted += part;
        column += part.size();
    }
    return quoted + "\r\n";
}

std::string Body(const std::string& text) {
    std::string body;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) body += QuotedLine(line);
    return body;
}

/// As RFC 5322 section 3.3 writes it, "Sat, 21 Nov 2026 20:13:40 +0000".
std::string DateText(const vek_date::DateTime& date) {
    static const std::array kDays{"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
    static const std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    constexpr std::int64_t kDay = 24L * 3600;
    const std::int64_t days = date.SecondsSince(vek_date::DateTime("1970-01-01 00:00:00")) / kDay;
    const std::string text = date.AsDateTime();
    const auto month = static_cast<std::size_t>(str::Int(text.substr(5, 2)) - 1);
    return std::string(kDays.at(static_cast<std::size_t>((days % 7 + 7) % 7))) + ", " + text.substr(8, 2) +
           " " + kMonths.at(month) + " " + text.substr(0, 4) + " " + text.substr(11) + " +0000";
}

std::string Shortened(const std::string& subject) {
    const std::vector<std::string> pieces = Pieces(subject, kMostOfSubject);
    return pieces.front() + (pieces.size() > 1 ? " ..." : "");
}

}  // namespace

std::string MessageOf(const Mail& mail) {
    return "From: " + WithoutControls(mail.from, ' ') + "\r\nTo: " + WithoutControls(mail.to, ' ') + "\r\n" +
           HeaderLine("Subject", Shortened(mail.subject)) + "Date: " + DateText(mail.date) +
           "\r\nMessage-ID: <" + WithoutControls(mail.message_id, ' ') +
           ">\r\nAuto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n"
           "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n" +
           Body(mail.text);
}

bool IsAddress(const std::string& text) {
    constexpr std::size_t kMost = 254;
    const std::size_t at = text.find('@');
    if (text.size() > kMost || at == 0 || at == std::string::npos || at + 1 == text.size()) return false;
    if (text.front() == '-' || text.find('@', at + 1) != std::string::npos) return false;
    return std::all_of(text.begin(), text.end(), [](char c) {
        return c > ' ' && c <= '~' && std::string("\"(),:;<>[\\]").find(c) == std::string::npos;
    });
}

}  // namespace zelvek::notices
