#pragma once

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "moved_clock.h"
#include "played_authority.h"
#include "vek/xml.h"
#include "zelvek/certificates/reloader.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/jobs/turns.h"
#include "zelvek/notices/watch.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/service/renewal_watch.h"
#include "zelvek/store/deliveries.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"

namespace zelvek::testing {

using vek_date::DateTime;

/// What the test knows of a job, beside the store.
struct Played {
    std::string name;
    bool broken = false;
    int valid_until = 0;  // of the installed certificate, second of the year; 0 for none
    int told = 0;         // how often the administrator was told of it
};

/// A panel and its jobs, carried through a year by the service's own code.
class Year {
public:
    explicit Year(const Rules& rules)
        : folder_(MakeFolder()),
          clock_(kBeginning),
          store_(folder_ / "zelvek.db"),
          publisher_(store_, folder_ / "answers", nullptr),
          reloader_(store_, {}),
          services_{store_, publisher_, install::Settings{folder_ / "certs"}, reloader_},
          self_(FindProcess(::getpid()).value()),
          turns_(store_, {}, self_),
          authority_(rules) {
        std::filesystem::create_directory(folder_ / "answers");
        for (int i = 0; i < rules.jobs; ++i) Add(i);
    }
    ~Year() { std::filesystem::remove_all(folder_); }
    Year(const Year&) = delete;
    Year& operator=(const Year&) = delete;

    void Pass() {
        int next_sweep = 0;
        while (now_ < kDays * kDay) {
            for (const int job : turns_.Claim(
                     64, [](int) { return false; }, true))
                Run(job);
            const auto next = turns_.Next();
            const int due = next ? Second(*next) : kDays * kDay;
            if (next_sweep <= now_) {
                Sweep();
                next_sweep += kHour;
            }
            if (RunsLeft()) continue;
            Advance(std::min({std::max(due, now_ + 1), next_sweep, kDays * kDay}));
        }
        for (auto& [id, job] : jobs_) NoteGap(job, now_);
    }

    const Authority& authority() const { return authority_; }

    /// Renewals planned in the busiest hour, against the mean; the first certificates do not count.
    double BusiestHour() const {
        const int first = 2 * authority_.rules().lifetime * 24;
        const double hours = kDays * 24 - first;
        return planned_.most(first) / (planned_.sum(first) / hours);
    }
    double BusiestDay() const {
        const int first = 2 * authority_.rules().lifetime;
        const double days = kDays - first;
        return planned_days_.most(first) / (planned_days_.sum(first) / days);
    }

    int gaps = 0;         // valid names that were without certificate
    int longest_gap = 0;  // seconds
    int renewals = 0, runs_made = 0;
    int asked_most = 0;  // how often one certificate was asked for within a day
    int told_of_working = 0;

    /// How often the administrator was told of a broken name: fewest, most.
    std::pair<int, int> ToldOfBroken() const {
        std::pair<int, int> told{kDays, 0};
        for (const auto& [id, job] : jobs_) {
            if (!job.broken) continue;
            told = {std::min(told.first, job.told), std::max(told.second, job.told)};
        }
        return told;
    }

private:
    static std::filesystem::path MakeFolder() {
        // Millions of small writes: in memory where there is such a place.
        const std::filesystem::path memory = "/dev/shm";
        std::string pattern =
            ((std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) /
             "zelvek.XXXXXX")
                .string();
        return ::mkdtemp(pattern.data());
    }

    static int Second(const std::string& time) {
        return static_cast<int>(DateTime(time).SecondsSince(DateTime(kBeginning)));
    }

    static std::string Time(int second) { return DateTime(kBeginning).AddSeconds(second).AsDateTime(); }

    void Advance(int second) {
        clock_.Set(Time(second));
        now_ = second;
    }

    vek_xml::Node Ask(const std::map<std::string, std::string>& parameters) {
        std::string form;
        for (const auto& [key, value] : parameters)
            form += (form.empty() ? "" : "&") + key + "=" + Encoded(value);
        const Answer answer = AnswerQuery(services_, {Parameters(form), self_, "", Right::kOwn});
        answer_.emplace(answer.text);
        EXPECT_FALSE(answer_->GetNode("/doc/error")) << answer.text;
        return answer_->GetNode("/doc");
    }

    void Add(int number) {
        Played job;
        job.name = "site" + std::to_string(number) + ".example";
        job.broken = number % kOneOf == 7;
        const auto added = Ask({{"func", "zelvek.job.add"},
                                {"domain", job.name},
                                {"user_name", "user" + std::to_string(number % 100)},
                                {"foreign_names", "on"}});
        jobs_[std::stoi(added.Value("id"))] = job;
    }

    /// Jobs that are due now, so that nobody waits an hour.
    bool RunsLeft() { return !turns_.UsedUp(); }

    /// What the plug-in does in one run, as far as the service sees it.
    void Run(int id) {
        ++runs_made;
        Played& job = jobs_.at(id);
        const vek_xml::Node record =
            Ask({{"func", "ambrin.data.edit"}, {"out", "xml"}, {"elid", std::to_string(id)}});
        std::map<std::string, std::string> back{
            {"func", "ambrin.data.edit"}, {"sok", "ok"}, {"processing", "off"}};
        for (const char* key :
             {"elid", "kid", "acmekey", "modulus", "finalize", "finalize_check", "challenges", "next_attempt",
              "account_check_count", "verified", "failed", "force_update"})
            back[key] = record.Value(key);
        for (const char* flag : {"verified", "failed", "force_update"})
            if (back[flag].empty()) back[flag] = "off";
        back["update_default_account"] = "off";
        back["attempt_count"] = std::to_string(std::stoi("0" + record.Value("attempt_count")) + 1);
        if (Second(record.Value("time_started")) + kDay <= now_) {
            Stop(job, back);
        } else if (authority_.IsAway(now_)) {
            AddEvent(back, "failed", "http_query_error", "it does not answer");
        } else {
            Issue(job, record, back);
        }
        Ask(back);
    }

    void AddEvent(std::map<std::string, std::string>& back, const std::string& state,
                  const std::string& event, const std::string& detail) const {
        back["log"] +=
            (back["log"].empty() ? "" : ";") + Time(now_) + "," + state + "," + event + "," + detail;
    }

    void Stop(const Played& job, std::map<std::string, std::string>& back) {
        for (const std::string owner : {"", "user"}) {
            Ask({{"func", "problems.register"},
                 {"sok", "ok"},
                 {"name", owner.empty() ? "ambrin_failed_admin" : "ambrin_failed_user"},
                 {"id", "id" + std::to_string(++problems_)},
                 {"level", "error"},
                 {"owner", owner},
                 {"param_name", job.name},
                 {"param_error", ""}});
        }
        back["failed"] = "on";
        AddEvent(back, "failed", "timeout_error", "");
    }

    void Issue(Played& job, const vek_xml::Node& record, std::map<std::string, std::string>& back) {
        if (record.Value("kid").empty()) {
            back["kid"] = record.Value("default_kid");
            back["acmekey"] = record.Value("default_pem");
        }
        if (back["kid"].empty()) {
            authority_.Register();
            back["kid"] = "https://ca.example/acct/" + std::to_string(authority_.registrations);
            back["acmekey"] = "KEY";
            back["update_default_account"] = "on";
        }
        back["account_check_count"] = "0";
        if (!authority_.Order(now_)) {
            AddEvent(back, "failed", "order_failed", "<p><b>Return code:</b> 429");
            return;
        }
        AddEvent(back, "processing", "order_success", "");
        back["attempt_count"] = "0";
        if (job.broken) {
            authority_.Fail(job.name, now_);
            AddEvent(back, "failed", "challenge_fail", "<p><b>Return code:</b> 403");
            return;
        }
        AddEvent(back, "success", "cert_recived", "");
        Install(job);
        back["verified"] = "on";
    }

    void Install(Played& job) {
        if (job.valid_until != 0) ++renewals;
        NoteGap(job, now_);
        job.valid_until = now_ + authority_.rules().lifetime * kDay;
        Transaction transaction(store_);
        const int id = runs::JobOf(transaction, self_);
        const Job stored = jobs::Find(transaction, id);
        NoteInstalled(transaction, stored.user_name, stored.folder, DateTime(),
                      DateTime().AddDays(authority_.rules().lifetime));
        const std::string renew = jobs::FindShown(transaction, id).renew;
        transaction.Commit();
        planned_.Add(Second(renew) / kHour);
        planned_days_.Add(Second(renew) / kDay);
    }

    /// A certificate was there and ended before the new one came.
    void NoteGap(const Played& job, int until) {
        if (job.broken || job.valid_until == 0 || job.valid_until >= until) return;
        ++gaps;
        longest_gap = std::max(longest_gap, until - job.valid_until);
    }

    /// What the service does beside runs: it tells people, forgets, and asks when to renew.
    void Sweep() {
        notices::WatchCertificates(store_, DateTime());
        {
            Transaction transaction(store_);
            ForgetOldUse(transaction, Time(now_));
            for (const auto& entry : deliveries::Unrouted(transaction, "", 10'000)) {
                NoteTold(problems::Find(transaction, entry.problem).value());
                deliveries::Route(transaction, entry, {}, "");
            }
            transaction.Commit();
        }
        AskForRenewals();
    }

    void NoteTold(const problems::Problem& problem) {
        if (problem.owner != "root" || problem.news) return;
        for (const auto& [key, value] : problem.parameters) {
            if (key != "name") continue;
            const auto job = std::find_if(jobs_.begin(), jobs_.end(), [&, &name = value](const auto& one) {
                return one.second.name == name;
            });
            if (job == jobs_.end()) continue;
            ++job->second.told;
            if (!job->second.broken) ++told_of_working;
        }
    }

    /// Every tenth certificate is known to the authority: it is to be renewed within two days around two
    /// thirds.
    void AskForRenewals() {
        Transaction transaction(store_);
        for (const Job& job : restarts::RenewalToAskFor(transaction, Time(now_), 10'000)) {
            restarts::Validity validity{job.expires, job.renew, ""};
            if (authority_.rules().suggests && job.id % 10 == 0) {
                const DateTime middle = DateTime(job.expires).AddDays(-authority_.rules().lifetime / 3);
                const renewal_info::Window window{DateTime(middle).AddDays(-1), DateTime(middle).AddDays(1)};
                validity = Suggested(job, job.certname, {window, kDay}, Time(now_));
                asked_[job.id].push_back(now_);
                asked_most =
                    std::max<int>(asked_most, std::count_if(asked_[job.id].begin(), asked_[job.id].end(),
                                                            [&](int time) { return time > now_ - kDay; }));
            }
            restarts::SetRenewal(transaction, job, validity.renew, validity.ask);
        }
        transaction.Commit();
    }

    std::filesystem::path folder_;
    MovedClock clock_;
    Store store_;
    Publisher publisher_;
    Reloader reloader_;
    Services services_;
    Process self_;
    Turns turns_;
    Authority authority_;
    std::map<int, Played> jobs_;
    std::optional<vek_xml::Xml> answer_;
    std::map<int, std::vector<int>> asked_;
    Counts planned_, planned_days_;
    int now_ = 0;
    int problems_ = 0;
};

}  // namespace zelvek::testing
