#pragma once

#include <array>
#include <string>
#include <variant>

#include "zelvek/base/process.h"

namespace zelvek {

/// One certificate job; the members bear the names of the record's keys.
struct Job {
    int id = 0;
    std::string certname, domain, user_name, aliases, check_type, res_name, csr_internal_request;
    std::string authority = "ambrin";
    std::string folder, time_started, next_attempt;
    std::string kid, acmekey, modulus, finalize, finalize_check, challenges;
    int attempt_count = 0;
    int account_check_count = 0;
    int max_account_check_attempts = 3;
    bool verified = false;
    bool failed = false;
    bool force_update = false;
    bool skip_account_check = false;
    bool processing = false;
    int failures = 0;         // runs that failed, one after the other
    bool paused = false;      // neither run nor renewed until somebody resumes it
    std::string refusal;      // what the panel has refused to the last run, for people to read
    std::string postponed;    // why the service makes the next run wait, for people to read
    std::string expires;      // when the installed certificate ends; empty where none is known
    std::string renew;        // when the installed certificate is renewed
    std::string ask_renewal;  // when the authority is asked next for the time of the renewal
    std::string last_run;     // when the last run ended; empty before the first
    bool died = false;        // the last run has ended without writing the record back
    std::string due;          // when the next run is due, unless the job is verified, failed or under way
    int notice_step = 0;      // what was told last of the certificate's coming end, or of its never coming
    std::string notice_due;   // when the job is looked at for that; empty: when one of its runs fails
    Process holder;           // who has the job: the process that read it last, or that claimed it for a run

    bool operator==(const Job&) const = default;
};

/// One field of a job: everything that reads, stores, writes back or shows fields goes by the table below, so
/// a new field is one line there.
struct JobField {
    enum class Writer { kPanel, kRun, kService };
    enum class Kept { kWithJob, kWithAccount };
    enum Shown : unsigned { kNowhere = 0, kInRecord = 1, kInLists = 2, kEverywhere = 3 };
    using Member = std::variant<std::string Job::*, int Job::*, bool Job::*>;

    const char* key;  // in queries and answers, and the name of the store's column
    Member member;
    Writer writer;  // who sets it: the panel when the job is added, a run's write-back, or the service
    Shown shown;    // in the record that a run reads, in what the command line lists and shows
    const char* meaning;
    Kept kept = Kept::kWithJob;
    bool date = false;  // "YYYY-MM-DD HH:MM:SS", or empty

    bool IsText() const { return std::holds_alternative<std::string Job::*>(member); }
    bool IsNumber() const { return std::holds_alternative<int Job::*>(member); }
    bool IsFlag() const { return std::holds_alternative<bool Job::*>(member); }
};

inline constexpr std::array kJobFields{
    JobField{"certname", &Job::certname, JobField::Writer::kPanel, JobField::kEverywhere,
             "Name of the certificate in the panel, and of its folder"},
    JobField{"folder", &Job::folder, JobField::Writer::kPanel, JobField::kNowhere,
             "Name of the certificate's folder in lower case: jobs of one user with one folder have one "
             "certificate"},
    JobField{"domain", &Job::domain, JobField::Writer::kPanel, JobField::kEverywhere, "Main domain name"},
    JobField{"user_name", &Job::user_name, JobField::Writer::kPanel, JobField::kEverywhere,
             "Panel user who owns the certificate"},
    JobField{"aliases", &Job::aliases, JobField::Writer::kPanel, JobField::kEverywhere,
             "All names of the certificate, the main one first, with blanks between them"},
    JobField{"check_type", &Job::check_type, JobField::Writer::kPanel, JobField::kEverywhere,
             "How names are proved: \"http\" (http-01) or \"dns\" (dns-01)"},
    JobField{"authority", &Job::authority, JobField::Writer::kPanel, JobField::kInLists,
             "Name of the authority that issues the certificate, and of its plug-in"},
    JobField{"res_name", &Job::res_name, JobField::Writer::kPanel, JobField::kInRecord,
             "A further addressee of notifications"},
    JobField{"csr_internal_request", &Job::csr_internal_request, JobField::Writer::kPanel,
             JobField::kInRecord,
             "Further parameters of the query that makes the certificate's request, in query form"},
    JobField{"time_started", &Job::time_started, JobField::Writer::kPanel, JobField::kEverywhere,
             "When the job was started; a day later it is stopped", JobField::Kept::kWithJob, true},
    JobField{"skip_account_check", &Job::skip_account_check, JobField::Writer::kPanel, JobField::kInRecord,
             "Whether the account is used without asking the authority for it"},
    JobField{"max_account_check_attempts", &Job::max_account_check_attempts, JobField::Writer::kPanel,
             JobField::kInRecord, "Failed account checks before a new account is made"},
    JobField{"kid", &Job::kid, JobField::Writer::kRun, JobField::kEverywhere,
             "URL of the account at the authority", JobField::Kept::kWithAccount},
    JobField{"acmekey", &Job::acmekey, JobField::Writer::kRun, JobField::kInRecord,
             "Private key of the account, PEM", JobField::Kept::kWithAccount},
    JobField{"modulus", &Job::modulus, JobField::Writer::kRun, JobField::kInRecord,
             "Public key of the account as a JSON Web Key", JobField::Kept::kWithAccount},
    JobField{"finalize", &Job::finalize, JobField::Writer::kRun, JobField::kInRecord,
             "URL that finalizes the current order"},
    JobField{"finalize_check", &Job::finalize_check, JobField::Writer::kRun, JobField::kEverywhere,
             "URL of the current order"},
    JobField{"challenges", &Job::challenges, JobField::Writer::kRun, JobField::kEverywhere,
             "Authorizations of the current order that are still open, JSON"},
    JobField{"next_attempt", &Job::next_attempt, JobField::Writer::kRun, JobField::kEverywhere,
             "The earliest time of the next run, as the last one asked for", JobField::Kept::kWithJob, true},
    JobField{"attempt_count", &Job::attempt_count, JobField::Writer::kRun, JobField::kEverywhere,
             "Runs since the last order was begun or finished"},
    JobField{"account_check_count", &Job::account_check_count, JobField::Writer::kRun, JobField::kInRecord,
             "Account checks that failed in a row"},
    JobField{"verified", &Job::verified, JobField::Writer::kRun, JobField::kEverywhere,
             "Whether the certificate is installed"},
    JobField{"failed", &Job::failed, JobField::Writer::kRun, JobField::kEverywhere,
             "Whether the job has been stopped; it begins anew when it is due"},
    JobField{"force_update", &Job::force_update, JobField::Writer::kRun, JobField::kInRecord,
             "Whether somebody asked for a renewal"},
    JobField{"processing", &Job::processing, JobField::Writer::kRun, JobField::kInLists,
             "Whether a run is under way"},
    JobField{"paused", &Job::paused, JobField::Writer::kService, JobField::kInLists,
             "Whether the job is neither run nor renewed until somebody resumes it"},
    JobField{"failures", &Job::failures, JobField::Writer::kService, JobField::kInLists,
             "Runs that failed, one after the other"},
    JobField{"refusal", &Job::refusal, JobField::Writer::kService, JobField::kInLists,
             "What the panel has refused to the last run"},
    JobField{"postponed", &Job::postponed, JobField::Writer::kService, JobField::kInLists,
             "Why the next run is made to wait"},
    JobField{"expires", &Job::expires, JobField::Writer::kService, JobField::kInLists,
             "When the installed certificate ends", JobField::Kept::kWithJob, true},
    JobField{"renew", &Job::renew, JobField::Writer::kService, JobField::kInLists,
             "When the installed certificate is renewed", JobField::Kept::kWithJob, true},
    JobField{"ask_renewal", &Job::ask_renewal, JobField::Writer::kService, JobField::kNowhere,
             "When the authority is asked next for the time of the renewal", JobField::Kept::kWithJob, true},
    JobField{"last_run", &Job::last_run, JobField::Writer::kService, JobField::kNowhere,
             "When the last run ended", JobField::Kept::kWithJob, true},
    JobField{"died", &Job::died, JobField::Writer::kService, JobField::kNowhere,
             "Whether the last run has ended without writing the record back"},
    JobField{"due", &Job::due, JobField::Writer::kService, JobField::kInLists, "When the next run is due",
             JobField::Kept::kWithJob, true},
    JobField{"notice_step", &Job::notice_step, JobField::Writer::kService, JobField::kNowhere,
             "Days before the certificate's end that were told last; 1 where it is told that none comes"},
    JobField{"notice_due", &Job::notice_due, JobField::Writer::kService, JobField::kNowhere,
             "When the job is looked at next for such a notification", JobField::Kept::kWithJob, true},
};

}  // namespace zelvek
