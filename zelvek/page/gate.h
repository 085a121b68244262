#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "zelvek/page/request.h"
#include "zelvek/page/settings.h"
#include "zelvek/store/store.h"

namespace zelvek::page {

/// Who asks, and for whose jobs.
struct Visitor {
    std::string user = {};  // whose jobs they see and touch; empty: everybody's
    long long session = 0;  // 0 where the web server before the page says who it is
    std::string csrf = {};  // what their changes have to bring
    bool IsAdministrator() const { return user.empty(); }
};

/// "anna", or "the administrator", and how they came in: for the log of what was done.
std::string NameOf(const Visitor& visitor);

/// Says who gets in. Safe from any thread.
class Gate {
public:
    Gate(Store& store, const Settings& settings);

    /// Whether the request is for this page, and not for another name that leads here.
    bool IsForUs(const Request& request) const;

    /// Nobody for a request that says nothing, or nothing that holds any more.
    std::optional<Visitor> VisitorOf(const Request& request);

    /// Whether the session that this cookie names still holds.
    bool Holds(const std::string& cookie);

    /// Whether a change was asked for by the page itself.
    static bool MayChange(const Request& request, const Visitor& visitor);

    /// Takes the secret of a link, which holds once, and gives the new session's cookie with its attributes;
    /// nothing for a link that does not hold.
    std::optional<std::string> LogIn(const std::string& secret, const std::string& agent);

    /// Ends the session, and gives the cookie that makes the browser forget it.
    std::string LogOut(const Visitor& visitor);

    /// Whether there were too many failed log-ins within the last minute.
    bool IsTooBusy();

    /// The name of the session's cookie.
    std::string CookieName() const;

private:
    std::string CookieText(const std::string& value, long long seconds) const;
    std::optional<Visitor> VisitorOfCookie(const std::string& cookie, bool touch);

    Store& store_;
    Settings settings_;
    Address address_;
    std::string key_;  // of what changes have to bring; another one after each start
    std::mutex mutex_;
    std::deque<std::chrono::steady_clock::time_point> failures_;
};

}  // namespace zelvek::page
