#include "zelvek/page/gate.h"

#include <algorithm>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/secret.h"
#include "zelvek/base/text.h"
#include "zelvek/panel/page_keys.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/page_sessions.h"

namespace zelvek::page {

namespace {

using KeyKind = page_sessions::Kind;
using vek_date::DateTime;

constexpr std::size_t kMostFailures = 10;
constexpr std::chrono::seconds kWithin{60};
constexpr int kSeenEvery = 60;  // seconds; oftener a session's use is not noted
constexpr std::size_t kMostOfAgent = 200;

std::string Before(const DateTime& now, std::chrono::seconds age) {
    return DateTime(now).AddSeconds(-static_cast<int>(age.count())).AsDateTime();
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

/// What follows "://" of an address without a path.
std::string HostOf(const std::string& origin) {
    const std::size_t begin = origin.find("://");
    return begin == std::string::npos ? "" : Lower(origin.substr(begin + 3));
}

}  // namespace

std::string NameOf(const Visitor& visitor) {
    const std::string who = visitor.IsAdministrator() ? "the administrator" : "user " + visitor.user;
    return who + (visitor.session == 0 ? " (by the web server)"
                                       : " (session " + std::to_string(visitor.session) + ")");
}

Gate::Gate(Store& store, const Settings& settings)
    : store_(store), settings_(settings), address_(AddressOf(settings)), key_(secrets::Fresh()) {}

bool Gate::IsForUs(const Request& request) const {
    const std::string host = Lower(request.host);
    if (host == Lower(address_.host)) return true;
    // By its address this machine reaches the page, too, whatever name others open.
    return !IsSocketPath(settings_.listen) && host == settings_.listen;
}

std::string Gate::CookieName() const { return address_.tls ? "__Secure-zelvek" : "zelvek"; }

std::string Gate::CookieText(const std::string& value, long long seconds) const {
    return CookieName() + "=" + value + "; Path=" + address_.path + "; Max-Age=" + std::to_string(seconds) +
           "; HttpOnly; SameSite=Strict" + (address_.tls ? "; Secure" : "");
}

std::optional<Visitor> Gate::VisitorOf(const Request& request) {
    if (!settings_.user_header.empty() && !request.user.empty()) {
        if (request.user.size() != 1) return std::nullopt;  // somebody has added one
        try {
            names::CheckUser(request.user.front());
        } catch (const Error&) {
            return std::nullopt;
        }
        return Visitor{request.user.front(), 0, secrets::Mac(key_, "user " + request.user.front())};
    }
    return VisitorOfCookie(request.cookie, !request.by_itself);
}

bool Gate::Holds(const std::string& cookie) { return VisitorOfCookie(cookie, false).has_value(); }

std::optional<Visitor> Gate::VisitorOfCookie(const std::string& cookie, bool touch) {
    if (cookie.empty()) return std::nullopt;
    const DateTime now;
    Transaction transaction(store_);
    const auto session = page_keys::Find(transaction, KeyKind::kSession, cookie);
    if (!session) return std::nullopt;
    if (session->seen < Before(now, settings_.idle) || session->began < Before(now, settings_.longest)) {
        page_sessions::Remove(transaction, KeyKind::kSession, session->number);
        transaction.Commit();
        return std::nullopt;
    }
    const int pause = std::min<int>(kSeenEvery, static_cast<int>(settings_.idle.count()) / 4);
    if (touch && session->seen < Before(now, std::chrono::seconds(pause))) {
        page_sessions::SetSeen(transaction, session->number, now.AsDateTime());
        transaction.Commit();
    }
    return Visitor{session->user_name, session->number, secrets::Mac(key_, "session " + session->hash)};
}

bool Gate::MayChange(const Request& request, const Visitor& visitor) {
    const bool ours = request.origin.empty() || HostOf(request.origin) == Lower(request.host);
    return ours && request.content_type.starts_with("application/json") &&
           secrets::Same(request.csrf, visitor.csrf);
}

bool Gate::IsTooBusy() {
    const std::lock_guard lock(mutex_);
    const auto since = std::chrono::steady_clock::now() - kWithin;
    while (!failures_.empty() && failures_.front() < since) failures_.pop_front();
    return failures_.size() >= kMostFailures;
}

std::optional<std::string> Gate::LogIn(const std::string& secret, const std::string& agent) {
    const DateTime now;
    Transaction transaction(store_);
    const auto link = page_keys::Find(transaction, KeyKind::kLink, secret);
    const bool holds = link && link->began >= Before(now, std::chrono::seconds(page_keys::kLinkSeconds));
    if (link) page_sessions::Remove(transaction, KeyKind::kLink, link->number);
    if (!holds) {
        transaction.Commit();
        const std::lock_guard lock(mutex_);
        failures_.push_back(std::chrono::steady_clock::now());
        return std::nullopt;
    }
    page_sessions::RemoveOlder(transaction, KeyKind::kSession, Before(now, settings_.longest),
                               Before(now, settings_.idle));
    const std::string time = now.AsDateTime();
    const std::string cookie =
        page_keys::Make(transaction, {0, KeyKind::kSession, "", link->user_name, time, time,
                                      names::MakeText(WithoutControls(agent.substr(0, kMostOfAgent), ' '))});
    const Visitor visitor{link->user_name, std::stoll(cookie), ""};
    page_deeds::Add(transaction, {0, time, NameOf(visitor), "came in by a link"});
    transaction.Commit();
    return CookieText(cookie, settings_.longest.count());
}

std::string Gate::LogOut(const Visitor& visitor) {
    Transaction transaction(store_);
    page_sessions::Remove(transaction, KeyKind::kSession, visitor.session);
    page_deeds::Add(transaction, {0, DateTime().AsDateTime(), NameOf(visitor), "logged out"});
    transaction.Commit();
    return CookieText("", 0);
}

}  // namespace zelvek::page
