#pragma once

#include <string>
#include <vector>

#include "zelvek/notices/texts.h"
#include "zelvek/store/problems.h"

/// What one recipient is told at once: every notification that waits when the delivery begins.
namespace zelvek::notices {

struct Digest {
    std::string attempt;                     // its name, the same each time that it is tried
    std::vector<problems::Problem> notices;  // with their numbers
    long long doubtful = 0;                  // notifications of earlier digests of which nobody knows
};

/// The most urgent ones first, those of one level by number, each once. Of what the administrator and another
/// one are told of the same certificate with the same urgency, the administrator's stays: both are here where
/// the other one has no address.
void Arrange(Digest& digest);

/// One line, and text of lines with at most 72 characters (a longer word has a line of its own). A hundred
/// notifications are told with their texts, the others by their subjects.
struct Letter {
    std::string subject, text;
};
Letter LetterOf(const Digest& digest, const Texts& texts);

/// The digest as a JSON object in one line, for a program; `name` and `address` say whose it is, the address
/// may be empty.
std::string JsonOf(const Digest& digest, const Texts& texts, const std::string& name,
                   const std::string& address);

/// `text` with line ends between words, so that no line has more than `width` characters. Line ends that are
/// there stay.
std::string Wrapped(const std::string& text, std::size_t width);

}  // namespace zelvek::notices
