#include "zelvek/certificates/site_watch.h"

#include <algorithm>
#include <utility>

#include "vek/date.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/names.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/store/problems.h"

namespace zelvek {

namespace {

using served::Check;
using served::Served;

constexpr int kLookedAtOnce = 20;
constexpr int kTellAfter = 6;   // looks in vain: with pauses from five seconds on, some minutes
constexpr int kMostLooks = 40;  // a day and more
constexpr int kMostDoublingsOfPause = 20;
constexpr std::size_t kMostAddresses = 4;
constexpr std::size_t kLargestCertificate = 256UL << 10;

std::string Later(const vek_date::DateTime& now, std::chrono::milliseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return vek_date::DateTime(now).AddSeconds(static_cast<int>(seconds.count())).AsDateTime();
}

/// The name to ask for: a wildcard's site has any name below it.
std::string NameFor(const std::vector<std::string>& names) {
    const auto plain = std::find_if(names.begin(), names.end(),
                                    [](const std::string& name) { return !name.starts_with('*'); });
    if (plain != names.end()) return *plain;
    return names.empty() ? "" : "www" + names.front().substr(1);
}

std::string OldOne(const Site& site, const Leaf& leaf) {
    return "the web server at " + site.Text() + " still serves the one of " +
           leaf.lifetime.from.AsDateTime() + " UTC";
}

void Tell(Transaction& transaction, const Check& check, const Served& seen) {
    problems::Raise(transaction, {.name = "old_certificate_served",
                                  .level = "error",
                                  .owner = "root",
                                  .time = seen.time,
                                  .parameters = {{"certname", check.certname},
                                                 {"directory", check.directory},
                                                 {"reason", seen.detail},
                                                 {"since", check.since},
                                                 {"user", check.user_name}},
                                  .user = check.user_name,
                                  .about = check.folder,
                                  .until_verified = false});
}

}  // namespace

SiteWatch::SiteWatch(Store& store, Settings settings) : store_(store), settings_(std::move(settings)) {}

void SiteWatch::Expect(const std::string& user, const std::string& certname,
                       const std::filesystem::path& directory) {
    const auto settings = settings_.Get();
    if (!settings->wanted) return;
    const vek_date::DateTime now;
    Transaction transaction(store_);
    served::Expect(transaction, {user, names::ComparedFolder(certname), certname, directory, now.AsDateTime(),
                                 Later(now, settings->first_pause)});
    transaction.Commit();
}

void SiteWatch::LookAtDue() {
    const auto settings = settings_.Get();
    if (!settings->wanted) return;
    const vek_date::DateTime now;
    std::vector<Check> due;
    {
        Transaction transaction(store_);
        // What lies later than any pause can mean was written by a clock that has been set back since.
        due = served::Due(transaction, now.AsDateTime(), Later(now, 2 * settings->longest_pause),
                          kLookedAtOnce);
    }
    for (const Check& check : due) {
        if (ending_) return;
        Keep(check, Look(check, *settings), *settings);
    }
}

Served SiteWatch::Look(const Check& check, const Settings& settings) const {
    const std::string now = vek_date::DateTime().AsDateTime();
    try {
        // The folder's owner may have put anything there.
        const auto text =
            ReadSmallFile(std::filesystem::path(check.directory) / "cert.pem", kLargestCertificate);
        if (!text) throw Error(Code::kIo, "the installed certificate cannot be read");
        const Leaf installed = ReadLeaf(*text);
        const std::string name = NameFor(installed.names);
        const auto sites = settings.site ? std::vector<Site>{*settings.site} : SitesOf(name, kMostAddresses);
        for (const Site& site : sites) {
            const Leaf shown = ReadLeaf(CertificateAt(site, name, settings.limit));
            if (shown.der != installed.der) return {served::kOlder, now, OldOne(site, shown)};
        }
        return {served::kServed, now, ""};
    } catch (const Error& error) {
        return {served::kUnreachable, now, names::MakeText(error.sentence())};
    }
}

void SiteWatch::Keep(const Check& check, const Served& seen, const Settings& settings) {
    const bool done = seen.state == served::kServed || check.looks + 1 >= kMostLooks;
    const auto pause = settings.first_pause * (1LL << std::min(check.looks, kMostDoublingsOfPause));
    const std::string next =
        Later(vek_date::DateTime(), std::min<std::chrono::milliseconds>(pause, settings.longest_pause));
    Transaction transaction(store_);
    if (!served::IsExpected(transaction, check)) return;  // another certificate was installed meanwhile
    served::Set(transaction, check.user_name, check.folder, seen);
    done ? served::Finish(transaction, check.user_name, check.folder)
         : served::Postpone(transaction, check, next);
    if (seen.state == served::kServed)
        problems::Resolve(transaction, "old_certificate_served", check.user_name, check.folder);
    const bool tell = seen.state == served::kOlder && check.looks + 1 >= kTellAfter;
    if (tell) Tell(transaction, check, seen);
    transaction.Commit();
    if (check.looks + 1 == kTellAfter && tell)
        Log(check.user_name + "'s certificate " + check.certname + ": " + seen.detail);
}

void ForgetSite(Transaction& transaction, const std::string& user, const std::string& folder) {
    served::Forget(transaction, user, folder);
    problems::Resolve(transaction, "old_certificate_served", user, folder);
}

}  // namespace zelvek
