#pragma once

#include <string>

#include "vek/date.h"

namespace zelvek::notices {

/// A message to one recipient.
struct Mail {
    std::string from, to;  // addresses
    std::string subject;
    std::string text;  // lines, each ended by a line feed
    std::string message_id;
    vek_date::DateTime date;
};

/// The message with its header (RFC 5322, RFC 2045), lines ended by CR LF, all of it ASCII with lines of at
/// most 78 characters: what is more is encoded (RFC 2047, quoted-printable). A control character in a header
/// becomes a blank, so that nothing can begin another line. It says of itself that no person has written it
/// (RFC 3834), so that nobody's absence is told to the service.
std::string MessageOf(const Mail& mail);

/// Whether `text` is an address as this service uses it, "local@domain": ASCII without blanks, quotes,
/// brackets, commas and the like, at most 254 characters (RFC 5321 section 4.5.3.1.3).
bool IsAddress(const std::string& text);

}  // namespace zelvek::notices
