#pragma once

#include <array>

namespace zelvek {

/// One thing that may be chosen of a certificate's request besides its names.
struct RequestKey {
    const char* key;     // of the query that makes the request
    const char* values;  // what can be given, for people to read after "it is"
};

/// All of them. What is not given is left out of the request; the key is an RSA key of 2048 bits then, and an
/// ec key's curve P-256.
inline constexpr std::array kRequestKeys{
    RequestKey{"key_type", "rsa or ec"},
    RequestKey{"key_size", "of an rsa key, a number of bits from 2048 to 8192"},
    RequestKey{"key_curve", "of an ec key, P-256, P-384 or P-521"},
    RequestKey{"country", "a code of two letters, such as DE"},
    RequestKey{"state", "a text of at most 128 characters"},
    RequestKey{"locality", "a text of at most 128 characters"},
    RequestKey{"organization", "a text of at most 64 characters"},
    RequestKey{"unit", "a text of at most 64 characters"},
    RequestKey{"email", "a text of at most 128 characters, all of them ASCII"},
};

}  // namespace zelvek
