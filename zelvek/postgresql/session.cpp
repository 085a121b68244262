#include "zelvek/postgresql/session.h"

#include <algorithm>
#include <thread>

#include "zelvek/postgresql/dialect.h"
#include "zelvek/postgresql/locks.h"

namespace zelvek::postgresql {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{10'000};

// A service that has just ended is still there for the server for a moment.
constexpr milliseconds kAfterlife{500};
constexpr milliseconds kBetweenClaims{20};

// How long a commit that broke off is asked for.
constexpr milliseconds kDoubt{20'000};

// A session that sleeps in its transaction keeps everybody waiting: it is ended by the server.
constexpr const char* kSettings =
    "SET client_min_messages = warning; SET lock_timeout = '10s';"
    " SET idle_in_transaction_session_timeout = '60s'; SET jit = off; SET TimeZone = 'UTC';"
    " SET default_transaction_isolation = 'read committed'";

}  // namespace

Session::Session(const std::string& url, Sharing sharing) : url_(url), sharing_(sharing) {
    CheckUrl(url_);
    Connect();
    CheckIsOurs();
}

Client& Session::client() {
    if (IsUp()) return *client_;
    throw Lost(Code::kLater, "the connection to the database is lost");
}

Client& Session::Renewed() {
    if (IsUp()) return *client_;
    if (steady_clock::now() < next_attempt_)
        throw Lost(Code::kLater, "the connection to the database is lost; it is tried again soon");
    try {
        Connect();
    } catch (const Error& error) {
        client_.reset();
        pause_ = std::clamp(2 * pause_, kFirstPause, kLongestPause);
        next_attempt_ = steady_clock::now() + pause_;
        throw Lost(Code::kLater, error.what());
    }
    return *client_;
}

void Session::Connect() {
    names_.clear();
    client_.reset();
    client_ = std::make_unique<Client>(url_);
    SetUp();
    pause_ = milliseconds{0};
}

void Session::SetUp() {
    client_->Do(kSettings);
    if (client_->Ask("SELECT current_schema()").empty())
        throw Error(Code::kIo, "its user has no schema to keep tables in");
    EndFormer();
    if (sharing_ == Sharing::kAlone) Claim();
    const Result own =
        client_->Do("SELECT pid, backend_start FROM pg_stat_activity WHERE pid = pg_backend_pid()");
    former_process_ = own.Text(0, 0);
    former_start_ = own.Text(0, 1);
}

/// What the server still does for a connection that is lost would be done behind our back.
void Session::EndFormer() {
    if (former_process_.empty()) return;
    client_->Do(
        "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity"
        " WHERE pid = $1::int AND backend_start = $2::timestamptz",
        {former_process_, former_start_});
}

void Session::Claim() {
    const auto end = steady_clock::now() + kAfterlife;
    while (client_->Ask("SELECT pg_try_advisory_lock(" + Lock(kServiceLock) + ")") != "t") {
        if (steady_clock::now() >= end) throw Error(Code::kBusy, "it is in use by another service");
        std::this_thread::sleep_for(kBetweenClaims);
    }
}

/// Nothing has been changed so far.
void Session::CheckIsOurs() {
    const std::string strangers = client_->Ask(
        "SELECT count(*) FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace"
        " WHERE n.nspname = current_schema() AND c.relkind IN ('r', 'p')"
        " AND NOT EXISTS (SELECT 1 FROM pg_class v WHERE v.relnamespace = n.oid AND v.relname = "
        "'zelvek_version')");
    if (strangers != "0") throw Error(Code::kIo, "it is another program's database");
}

bool Session::WasCommitted(const std::string& number) {
    const auto end = steady_clock::now() + kDoubt;
    for (milliseconds pause = kFirstPause;; pause *= 2) {
        try {
            if (!IsUp()) Connect();
            // Nothing where the number is so old that nobody knows it any more.
            const std::string state = client_->Ask("SELECT pg_xact_status($1::xid8)", {number});
            if (state != "in progress") return state == "committed";
        } catch (const Error&) {
            client_.reset();
        }
        if (steady_clock::now() + pause >= end) break;
        std::this_thread::sleep_for(pause);
    }
    throw Lost(Code::kLater, "the connection to the database was lost in a commit, and is still lost");
}

const std::string& Session::NameOf(const std::string& sql) {
    const auto known = names_.find(sql);
    if (known != names_.end()) return known->second;
    const std::string name = "s" + std::to_string(names_.size() + 1);
    client().Prepare(name, Numbered(sql));
    return names_.emplace(sql, name).first->second;
}

std::vector<std::string> Session::Prepared() const {
    std::vector<std::string> texts;
    for (const auto& [text, name] : names_) texts.push_back(text);
    return texts;
}

}  // namespace zelvek::postgresql
