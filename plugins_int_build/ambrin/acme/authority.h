#pragma once

/// What an executable of the program is built for: one authority, and the style in which that one is spoken
/// to. A run has no options for it. The build makes the constants (see cmake/Authorities.cmake), one small
/// source for each executable, so everything else is compiled once.

/// What authorities are not of one mind about.
struct Style {
    bool final_line_feed;           // at the end of the JSON texts that a signed request carries encoded
    int tries_with_further_nonces;  // of a request whose nonce was refused (RFC 8555 section 6.5)
    bool fetches_account;      // to check it, by POST-as-GET; otherwise it is posted the payload as it stands
    bool answers_with_object;  // a challenge, {} in every run (section 7.5.1); otherwise null in some
    bool polls_order;          // that is being finalized (section 7.4); otherwise the finalize URL
    bool retry_after_dates;    // are understood beside seconds (RFC 9110 section 10.2.3)
};

/// As the production directory of Let's Encrypt has always been spoken to.
inline constexpr Style kClassic{
    .final_line_feed = true,
    .tries_with_further_nonces = 0,
    .fetches_account = false,
    .answers_with_object = false,
    .polls_order = false,
    .retry_after_dates = false,
};

/// By the letter of RFC 8555.
inline constexpr Style kRfc8555{
    .final_line_feed = false,
    .tries_with_further_nonces = 2,
    .fetches_account = true,
    .answers_with_object = true,
    .polls_order = true,
    .retry_after_dates = true,
};

struct Authority {
    const char* directory_url;  // RFC 8555 section 7.1.1
    Style style;
};

extern const Authority kAuthority;
