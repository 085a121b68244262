#pragma once

/// The words for what somebody found who looked for a challenge's answer where the authority looks for it.
namespace zelvek::finding_state {

inline constexpr const char* kThere = "there";           // just what should be there
inline constexpr const char* kOther = "other";           // something else
inline constexpr const char* kRedirect = "redirect";     // a place elsewhere, which the authority goes on to
inline constexpr const char* kMissing = "missing";       // a name server that does not have the record
inline constexpr const char* kUnreached = "unreached";   // no answer
inline constexpr const char* kNoAddress = "no_address";  // a host without an address in the public DNS
inline constexpr const char* kNotPublic = "not_public";  // an address that means another host to everybody
inline constexpr const char* kNotLookedUp = "not_looked_up";  // no public name server has answered

}  // namespace zelvek::finding_state
