#include "zelvek/certificates/reloader.h"

#include <algorithm>
#include <utility>

#include "vek/date.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/log.h"
#include "zelvek/base/names.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/reloads.h"

namespace zelvek {

namespace {

constexpr int kTriedAtOnce = 20;
constexpr std::size_t kLargestKeyFile = 64UL << 10;
constexpr int kMostDoublings = 20;

// An installation is over by then, so that its own first reload is not preceded by a repeated one.
constexpr int kUntilInstalled = 120;  // seconds

std::string Later(const vek_date::DateTime& now, std::chrono::seconds time) {
    return vek_date::DateTime(now).AddSeconds(static_cast<int>(time.count())).AsDateTime();
}

void Tell(Transaction& transaction, const reloads::Reload& reload, const std::string& now,
          const std::string& reason) {
    problems::Raise(transaction, {.name = "web_server_reload",
                                  .level = "error",
                                  .owner = "root",
                                  .time = now,
                                  .parameters = {{"certname", reload.certname},
                                                 {"reason", reason},
                                                 {"since", reload.since},
                                                 {"user", reload.user_name}},
                                  .user = reload.user_name,
                                  .about = names::ComparedFolder(reload.certname),
                                  .until_verified = false});
}

}  // namespace

Reloader::Reloader(Store& store, Settings settings) : store_(store), settings_(std::move(settings)) {}

void Reloader::Expect(const std::string& user, const std::string& certname,
                      const std::filesystem::path& directory) {
    const auto settings = settings_.Get();
    if (settings->command.empty()) return;
    const vek_date::DateTime now;
    reloads::Reload reload{user, certname, directory, now.AsDateTime()};
    reload.next = Later(now, settings->limit + std::chrono::seconds(kUntilInstalled));
    Transaction transaction(store_);
    reloads::Expect(transaction, reload);
    transaction.Commit();
}

/// One that has failed before still has an earlier certificate to wait for.
void Reloader::Forget(const std::string& user, const std::string& certname) {
    Transaction transaction(store_);
    const auto reload = reloads::Find(transaction, user, certname);
    if (reload && reload->failures == 0) reloads::Finish(transaction, user, certname);
    transaction.Commit();
}

void Reloader::Reload(const InstalledCertificate& installed) {
    const auto settings = settings_.Get();
    if (settings->command.empty()) return;
    const std::string reason = RunReload(settings->command, settings->limit, installed);
    const vek_date::DateTime now;
    Transaction transaction(store_);
    const auto reload = reloads::Find(transaction, installed.user, installed.name);
    if (!reload) return;  // somebody else's reload has done it meanwhile
    if (reason.empty()) {
        EndReload(transaction, installed.user, installed.name);
    } else {
        const auto pause = settings->first_pause * (1 << std::min(reload->failures, kMostDoublings));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(pause);
        reloads::SetFailed(transaction, *reload, Later(now, std::min(seconds, settings->longest_pause)),
                           reason);
        Tell(transaction, *reload, now.AsDateTime(), reason);
    }
    transaction.Commit();
    const std::string what = "reload for " + installed.user + "'s certificate " + installed.name;
    if (!reason.empty())
        Log(Happening::kReloadFailed, {.certname = installed.name, .user = installed.user, .outcome = reason},
            what + ": " + reason);
    if (reason.empty() && reload->failures > 0) Log(what + ": done, after failures since " + reload->since);
}

void Reloader::RetryDue() {
    const auto settings = settings_.Get();
    const vek_date::DateTime now;
    std::vector<reloads::Reload> due;
    {
        Transaction transaction(store_);
        // What lies later than any pause can mean was written by a clock that has been set back since.
        due = reloads::Due(
            transaction, now.AsDateTime(),
            Later(now, settings->longest_pause + settings->limit + std::chrono::seconds(kUntilInstalled)),
            kTriedAtOnce);
        if (settings->command.empty()) {
            for (const reloads::Reload& reload : due)
                EndReload(transaction, reload.user_name, reload.certname);
            transaction.Commit();
            return;
        }
    }
    for (const reloads::Reload& reload : due) {
        if (ending_) return;
        // The folder's owner may have put anything there.
        const auto key =
            ReadSmallFile(std::filesystem::path(reload.directory) / "privkey.pem", kLargestKeyFile);
        Reload({reload.directory, reload.certname, reload.user_name, key.value_or("")});
    }
}

void EndReload(Transaction& transaction, const std::string& user, const std::string& certname) {
    reloads::Finish(transaction, user, certname);
    problems::Resolve(transaction, "web_server_reload", user, names::ComparedFolder(certname));
}

}  // namespace zelvek
