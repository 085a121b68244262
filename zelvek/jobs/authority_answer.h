#pragma once

#include <string>

#include "zelvek/store/history.h"

namespace zelvek {

/// What an authority has said to a run, as its history has it.
struct AuthorityAnswer {
    int code = 0;       // the status; 0 where it said none, or said nothing at all
    std::string type;   // of its problem, one of RFC 8555 section 6.7 such as "rateLimited"; empty for others
    std::string words;  // for people: one line of plain text, cut to 200 bytes
};

inline constexpr int kTooManyRequests = 429;

/// Whether a status says that the fault is the authority's own.
constexpr bool IsServerError(int code) { return code >= 500 && code <= 599; }

/// The status with which the detail of an authority's refusal begins; 0 for any other detail.
int ReturnCode(const std::string& detail);

/// Reads the detail of an event.
AuthorityAnswer ReadAnswer(const history::Event& event);

}  // namespace zelvek
