#pragma once

#include <optional>
#include <string>

#include "vek/date.h"

/// When an authority suggests to renew a certificate (RFC 9773).
namespace zelvek::renewal_info {

/// A part of time.
struct Window {
    vek_date::DateTime start;
    vek_date::DateTime end;
};

/// The moment of the window that has this share, from 0 to 1, of it before itself.
vek_date::DateTime Within(const Window& window, double share);

/// A number from 0 to 1 that is the same for the same name and differs much for others: a certificate keeps
/// its moment in a window that is asked for again.
double ShareOf(const std::string& name);

/// The body of an authority's answer. Errors: Error of code kProtocol.
Window ReadWindow(const std::string& body);

/// "2031-02-03T04:05:06Z" as RFC 3339 has it, fractions cut, other zones than UTC too. Errors: Error of code
/// kProtocol.
vek_date::DateTime ReadTime(const std::string& text);

/// The seconds that an answer's header block asks to wait for (RFC 9110 section 10.2.3); 0 for none.
int RetryAfter(const std::string& headers);

struct Suggestion {
    std::optional<Window> window;  // nothing: the authority suggests none for any certificate
    int retry_after = 0;           // seconds
};

/// An authority that suggests times, or does not.
class Authority {
public:
    /// The directory's URL; nothing is asked before `Ask`.
    explicit Authority(std::string directory) : directory_(std::move(directory)) {}

    /// Asks for the certificate of this name (`RenewalNameOf`). Errors: std::exception where the authority
    /// cannot be reached or answers with something else.
    Suggestion Ask(const std::string& name);

private:
    std::string directory_;
    std::optional<std::string> url_;  // empty: it suggests nothing
    std::string looked_up_;           // when the directory was read
};

}  // namespace zelvek::renewal_info
