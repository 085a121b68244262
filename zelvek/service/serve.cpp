#include "zelvek/service/serve.h"

#include <pwd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <utility>

#include "vek/client.h"
#include "vek/err.h"
#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/log.h"
#include "zelvek/base/periodic.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/text.h"
#include "zelvek/base/version.h"
#include "zelvek/page/page.h"
#include "zelvek/service/looks.h"
#include "zelvek/service/running_service.h"
#include "zelvek/service/service_manager.h"
#include "zelvek/service/socket.h"
#include "zelvek/service/use_directory.h"
#include "zelvek/store/copy_mark.h"
#include "zelvek/store/engines.h"
#include "zelvek/store/store.h"

namespace zelvek {

namespace {

/// The signals that are meant for the service, taken by its main thread alone. Threads made later block them
/// too.
class Signals {
public:
    Signals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_DFL);  // plug-ins could not be waited for otherwise
    }

    int Wait() {
        if (std::exchange(reload_asked_, false)) return SIGHUP;
        int signal = 0;
        sigwait(&signals_, &signal);
        return signal;
    }

    /// Whether the service is asked to end within that time. Who asks it to read its options again is heard
    /// by the next `Wait`.
    bool EndComesWithin(std::chrono::seconds time) {
        const timespec limit{time.count(), 0};
        const int signal = ::sigtimedwait(&signals_, nullptr, &limit);
        reload_asked_ = reload_asked_ || signal == SIGHUP;
        return signal > 0 && signal != SIGHUP;
    }

private:
    sigset_t signals_{};
    bool reload_asked_ = false;
};

uid_t IdOf(const std::string& user) {
    constexpr std::size_t kLongestEntry = 16384;
    std::array<char, kLongestEntry> texts{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwnam_r(user.c_str(), &entry, texts.data(), texts.size(), &found);
    if (found == nullptr)
        throw Error(Code::kValue, "--certs-owner: there is no user \"" + Printable(user) + "\"");
    return entry.pw_uid;
}

Place WithParent(const Place& database) {
    if (database.IsFile()) UseDirectory("the database's directory", database.File().parent_path());
    return database;
}

/// A server may begin after the service, or be away: it is waited for. Null when the service is to end
/// before.
std::unique_ptr<Store> OpenStore(const Place& database, Signals& signals) {
    constexpr std::chrono::seconds kLongestPause{10};
    for (std::chrono::seconds pause{1};; pause = std::min(2 * pause, kLongestPause)) {
        try {
            auto store = std::make_unique<Store>(WithParent(database));
            copy_mark::CheckIsNone(*store);
            return store;
        } catch (const Error& error) {
            if (database.IsFile() || error.code() != Code::kLater) throw;
            Log(error.what());
        }
        if (signals.EndComesWithin(pause)) return nullptr;
    }
}

/// Whether a query comes back from the service's own socket. One that comes back with an error has been
/// answered: a new start would not change that error.
bool AnswersItself() try {
    vek_client::Local("zelvek", "watchdog").Query("func=zelvek.account.show");
    return true;
} catch (const vek_err::Error& error) {
    if (error.type() != "connect" && error.type() != "protocol") return true;
    Log(std::string("watchdog: ") + error.what());
    return false;
}

/// Tells the service manager that all is well as long as it is; nothing where nobody wants to hear of it.
std::unique_ptr<Periodic> WatchOneself(const ServiceManager& manager) {
    if (!manager.watchdog()) return nullptr;
    constexpr int kTimesInInterval = 3;  // one that is late is not taken for none then
    return std::make_unique<Periodic>("watchdog", *manager.watchdog() / kTimesInInterval, [&manager] {
        if (AnswersItself()) manager.TellAlive();
    });
}

std::string Listed(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) str::inpl::Append(list, name, ", ");
    return list;
}

/// Has the service go by the options as they are now; returns in one line what came of it.
std::string Reload(RunningService& service, const ReadAgain& read_again) try {
    const NewOptions fresh = read_again();
    service.Use(fresh.options);
    fresh.taken_over();
    if (!fresh.at_next_start.empty()) {
        Log(Listed(fresh.at_next_start) + (fresh.at_next_start.size() == 1 ? " has" : " have") +
            " changed: takes effect at the next start");
    }
    if (fresh.changed.empty()) return "options read again: none has changed";
    return "options read again, taken over: " + Listed(fresh.changed);
} catch (const std::exception& error) {
    return std::string("the options cannot be used, the old ones go on: ") + error.what();
}

/// Says that the service is there, and returns when it is asked to end. `reload` has it read its options
/// again and says what came of that.
void UntilEnd(Signals& signals, const ServiceManager& manager, const std::function<std::string()>& reload) {
    const auto watched = WatchOneself(manager);
    manager.TellReady();
    std::cout << "zelvek: ready" << std::endl;
    LogToJournal(Happening::kBegan, {}, std::string("zelvek ") + Version() + " is ready");
    int signal = signals.Wait();
    for (; signal == SIGHUP; signal = signals.Wait()) {
        manager.TellReloading();
        const std::string outcome = reload();
        Log(outcome);
        manager.TellReady(outcome);
    }
    manager.TellEnding();
    Log(Happening::kEnds, {}, "ending on signal " + std::to_string(signal));
}

}  // namespace

install::Settings InstallSettings(const ServeOptions& options) {
    install::Settings settings = options.install;
    for (const std::string& user : options.certs_owners) settings.owners.push_back(IdOf(user));
    return settings;
}

namespace {

/// What `check` complains of is told with the place of the option, where it stands in a file.
template <class Check>
void CheckOf(const ServeOptions& options, const std::string& name, const Check& check) {
    try {
        check();
    } catch (const Error& error) {
        const auto place = options.places.find(name);
        throw Error(error.code(), (place == options.places.end() ? "" : place->second) + error.sentence());
    }
}

/// Each option alone, so that it is known which one is wrong.
void CheckNotices(const ServeOptions& options) {
    using Settings = notices::Notifier::Settings;
    const auto check = [&](const std::string& name, auto member) {
        Settings settings;
        settings.*member = options.notify.*member;
        CheckOf(options, name, [&] { notices::CheckSettings(settings); });
    };
    check("notify-mail", &Settings::administrator);
    check("notify-addresses", &Settings::addresses);
    check("notify-from", &Settings::from);
    check("notify-smtp", &Settings::smtp);
    check("notice-texts", &Settings::texts);
}

/// A back end's own mistakes are told of the option that selects it.
std::string SelectedBackend(const ServeOptions& options) {
    for (const dns::BackendKind& kind : dns::BackendKinds()) {
        const std::string& name = kind.options.front().name;
        if (options.places.contains(name)) return name;
    }
    return "";
}

}  // namespace

void CheckOptions(const ServeOptions& options) {
    CheckOf(options, "database", [&] { CheckPlace(Place(options.database)); });
    CheckOf(options, "admin-group", [&] { FindGroups(options.groups); });
    CheckOf(options, "certs-owner", [&] { InstallSettings(options); });
    CheckOf(options, "check-sites", [&] { WatchSettings(options); });
    CheckOf(options, "public-resolvers", [&] { PublicDns(ExaminerSettings(options).resolvers); });
    CheckOf(options, "plugin", [&] { CheckPlugin(options); });
    CheckOf(options, "metrics-listen", [&] {
        if (!options.metrics_listen.empty()) metrics::CheckAddress(options.metrics_listen);
    });
    CheckOf(options, "page-listen", [&] { page::CheckSettings(options.page); });
    CheckOf(options, SelectedBackend(options), [&] { dns::MakeBackend(options.dns); });
    CheckNotices(options);
}

void Serve(const ServeOptions& options, const ReadAgain& read_again) {
    vek_proc::LeaveNoCoreFile();
    Signals signals;
    ServiceManager manager;
    ServiceSocket socket(RunDirectory(), FindGroups(options.groups), manager.TakeSocket());
    const auto store = OpenStore(Place(options.database), signals);
    if (!store) return;
    RunningService service(options, *store, socket);
    UntilEnd(signals, manager, [&] { return Reload(service, read_again); });
}

}  // namespace zelvek
