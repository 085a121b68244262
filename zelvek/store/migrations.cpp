#include "zelvek/store/migrations.h"

namespace zelvek {

namespace {

// Job ids are never used again (AUTOINCREMENT): a late plug-in of a removed job must not find another one.
constexpr const char* kPanelRecords = R"sql(
CREATE TABLE job (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    certname TEXT NOT NULL,
    domain TEXT NOT NULL,
    user_name TEXT NOT NULL,
    aliases TEXT NOT NULL,
    check_type TEXT NOT NULL,
    res_name TEXT NOT NULL DEFAULT '',
    csr_internal_request TEXT NOT NULL DEFAULT '',
    time_started TEXT NOT NULL,
    next_attempt TEXT NOT NULL DEFAULT '',
    kid TEXT NOT NULL DEFAULT '',
    acmekey TEXT NOT NULL DEFAULT '',
    modulus TEXT NOT NULL DEFAULT '',
    finalize TEXT NOT NULL DEFAULT '',
    finalize_check TEXT NOT NULL DEFAULT '',
    challenges TEXT NOT NULL DEFAULT '',
    attempt_count INTEGER NOT NULL DEFAULT 0,
    account_check_count INTEGER NOT NULL DEFAULT 0,
    max_account_check_attempts INTEGER NOT NULL DEFAULT 3,
    verified INTEGER NOT NULL DEFAULT 0,
    failed INTEGER NOT NULL DEFAULT 0,
    force_update INTEGER NOT NULL DEFAULT 0,
    skip_account_check INTEGER NOT NULL DEFAULT 0,
    processing INTEGER NOT NULL DEFAULT 0,
    last_run TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE TABLE job_event (
    id INTEGER PRIMARY KEY,
    job INTEGER NOT NULL REFERENCES job (id) ON DELETE CASCADE,
    time TEXT NOT NULL,
    state TEXT NOT NULL,
    event TEXT NOT NULL,
    detail TEXT NOT NULL
) STRICT;
CREATE INDEX job_event_by_job ON job_event (job);
CREATE TABLE problem (
    number INTEGER PRIMARY KEY,
    id TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL,
    level TEXT NOT NULL,
    owner TEXT NOT NULL,
    time TEXT NOT NULL
) STRICT;
CREATE TABLE problem_parameter (
    problem INTEGER NOT NULL REFERENCES problem (number) ON DELETE CASCADE,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (problem, name)
) STRICT;
CREATE TABLE domain (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL,
    ascii TEXT NOT NULL UNIQUE,
    user_name TEXT NOT NULL
) STRICT;
CREATE TABLE setting (
    name TEXT PRIMARY KEY,
    value TEXT NOT NULL
) STRICT;
)sql";

// Which process a job was read by, and what processes left outside that must not outlive them.
constexpr const char* kProcesses = R"sql(
ALTER TABLE job ADD COLUMN reader_pid INTEGER NOT NULL DEFAULT 0;
ALTER TABLE job ADD COLUMN reader_start INTEGER NOT NULL DEFAULT 0;
CREATE TABLE reader (
    pid INTEGER PRIMARY KEY,
    start INTEGER NOT NULL,
    job INTEGER NOT NULL
) STRICT;
CREATE TABLE csr (
    name TEXT NOT NULL,
    pid INTEGER NOT NULL,
    start INTEGER NOT NULL,
    time TEXT NOT NULL,
    request TEXT NOT NULL,
    key TEXT NOT NULL,
    PRIMARY KEY (name, pid)
) STRICT;
CREATE TABLE publication (
    id INTEGER PRIMARY KEY,
    zone TEXT NOT NULL,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    user_name TEXT NOT NULL,
    job INTEGER NOT NULL,
    pid INTEGER NOT NULL,
    start INTEGER NOT NULL,
    kept INTEGER NOT NULL,
    unwanted INTEGER NOT NULL,
    UNIQUE (zone, name, value, job)
) STRICT;
)sql";

// Accounts are kept once, however many jobs use them: a key with its header is 4 kB. Each job knows when it
// is due, and whatever is looked for has an index, so that work grows with what is found, not with what is
// kept.
constexpr const char* kAccountsAndIndexes = R"sql(
CREATE TABLE account (
    id INTEGER PRIMARY KEY,
    kid TEXT NOT NULL,
    acmekey TEXT NOT NULL,
    modulus TEXT NOT NULL
) STRICT;
CREATE INDEX account_by_kid ON account (kid, modulus);
INSERT INTO account (kid, acmekey, modulus)
    SELECT DISTINCT kid, acmekey, modulus FROM job WHERE kid <> '' OR acmekey <> '' OR modulus <> '';
INSERT INTO account (kid, acmekey, modulus)
    SELECT a.value, b.value, '' FROM setting a, setting b
    WHERE a.name = 'default_kid' AND b.name = 'default_pem'
      AND NOT EXISTS (SELECT 1 FROM account WHERE kid = a.value AND acmekey = b.value);
INSERT INTO setting (name, value)
    SELECT 'default_account', CAST (min(account.id) AS TEXT) FROM account, setting a, setting b
    WHERE a.name = 'default_kid' AND b.name = 'default_pem' AND kid = a.value AND acmekey = b.value
    HAVING count(*) > 0;
DELETE FROM setting WHERE name IN ('default_kid', 'default_pem');
ALTER TABLE job ADD COLUMN account INTEGER REFERENCES account (id);
UPDATE job SET account = (SELECT id FROM account WHERE account.kid = job.kid AND account.modulus = job.modulus
                                                   AND account.acmekey = job.acmekey);
ALTER TABLE job DROP COLUMN kid;
ALTER TABLE job DROP COLUMN acmekey;
ALTER TABLE job DROP COLUMN modulus;
ALTER TABLE job RENAME COLUMN reader_pid TO holder_pid;
ALTER TABLE job RENAME COLUMN reader_start TO holder_start;
ALTER TABLE job ADD COLUMN due TEXT NOT NULL DEFAULT '';
UPDATE job SET due = CASE WHEN next_attempt > last_run THEN next_attempt WHEN last_run = '' THEN time_started
                          ELSE coalesce(datetime(last_run, '+60 seconds'), last_run) END;
CREATE INDEX job_due ON job (due, id) WHERE verified = 0 AND failed = 0 AND processing = 0;
CREATE INDEX job_waiting ON job (id) WHERE verified = 0 AND failed = 0 AND processing = 0;
CREATE INDEX job_running ON job (id) WHERE processing = 1;
CREATE INDEX job_failed ON job (id) WHERE failed = 1;
CREATE INDEX job_verified ON job (id) WHERE verified = 1;
CREATE INDEX job_by_user ON job (user_name, id);
CREATE INDEX job_waiting_by_user ON job (user_name, id) WHERE verified = 0 AND failed = 0 AND processing = 0;
CREATE INDEX job_running_by_user ON job (user_name, id) WHERE processing = 1;
CREATE INDEX job_failed_by_user ON job (user_name, id) WHERE failed = 1;
CREATE INDEX job_verified_by_user ON job (user_name, id) WHERE verified = 1;
CREATE INDEX job_by_account ON job (account);
DROP INDEX job_event_by_job;
CREATE INDEX job_event_by_job ON job_event (job, id);
CREATE INDEX job_event_by_time ON job_event (time, id);
CREATE INDEX problem_by_time ON problem (time, number);
CREATE INDEX csr_by_time ON csr (time);
CREATE INDEX domain_by_user ON domain (user_name, id);
CREATE INDEX publication_by_job ON publication (job, id);
CREATE INDEX publication_unwanted ON publication (id) WHERE unwanted = 1;
CREATE INDEX publication_not_kept ON publication (id) WHERE kept = 0 AND unwanted = 0;
CREATE INDEX publication_by_name ON publication (user_name, name, value);
)sql";

// What a run has withdrawn goes with its write-back, and what could not be published yet is tried again.
constexpr const char* kPublicationsOfRuns = R"sql(
ALTER TABLE publication ADD COLUMN withdrawn_pid INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN withdrawn_start INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN missing INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN found INTEGER NOT NULL DEFAULT 0;
CREATE INDEX publication_missing ON publication (id) WHERE missing = 1 AND unwanted = 0;
)sql";

// Certificates that the web server has not taken over yet.
constexpr const char* kReloads = R"sql(
CREATE TABLE reload (
    user_name TEXT NOT NULL,
    certname TEXT NOT NULL,
    directory TEXT NOT NULL,
    since TEXT NOT NULL,
    failures INTEGER NOT NULL,
    next TEXT NOT NULL,
    reason TEXT NOT NULL,
    PRIMARY KEY (user_name, certname)
) STRICT;
CREATE INDEX reload_by_next ON reload (next);
)sql";

// One user's jobs have a certificate each. SQL has no ASCII form of a name, so the folders of the jobs that
// there are come afterwards: the setting says so. Older versions let several jobs have one certificate.
constexpr const char* kFolders = R"sql(
ALTER TABLE job ADD COLUMN folder TEXT NOT NULL DEFAULT '';
INSERT INTO setting (name, value) VALUES ('folders_missing', '');
CREATE INDEX job_by_folder ON job (user_name, folder);
)sql";

// Jobs whose last run ended in the future: the clock was set back.
constexpr const char* kClock = R"sql(
CREATE INDEX job_by_last_run ON job (last_run, due) WHERE verified = 0 AND failed = 0 AND processing = 0;
)sql";

// What was carried out already when its query comes again.
constexpr const char* kAnsweredQueries = R"sql(
CREATE TABLE answered_query (
    identity TEXT PRIMARY KEY,
    answer TEXT NOT NULL,
    time TEXT NOT NULL
) STRICT;
CREATE INDEX answered_query_by_time ON answered_query (time, identity);
)sql";

// Installed certificates end, and are renewed before. When those of older versions do is read from their
// files, one after the other.
constexpr const char* kRenewals = R"sql(
ALTER TABLE job ADD COLUMN expires TEXT NOT NULL DEFAULT '';
ALTER TABLE job ADD COLUMN renew TEXT NOT NULL DEFAULT '';
CREATE INDEX job_by_renewal ON job (renew, id) WHERE verified = 1;
CREATE INDEX job_of_unknown_end ON job (id) WHERE verified = 1 AND expires = '';
)sql";

// Stopped jobs are started anew when their time comes; those of older versions within a day, not all at once.
constexpr const char* kRetries = R"sql(
UPDATE job SET due = datetime('now', '+' || (abs(random()) % 86400) || ' seconds') WHERE failed = 1;
CREATE INDEX job_stopped ON job (due, id) WHERE failed = 1 AND verified = 0;
)sql";

// A wildcard stands for all names one label below, so whose these are is looked up.
constexpr const char* kParents = R"sql(
ALTER TABLE domain ADD COLUMN parent TEXT NOT NULL DEFAULT '';
UPDATE domain SET parent = substr(ascii, instr(ascii, '.') + 1);
CREATE INDEX domain_by_parent ON domain (parent, user_name);
)sql";

// What jobs have used of that which an authority limits.
constexpr const char* kAuthorityUse = R"sql(
CREATE TABLE authority_use (
    id INTEGER PRIMARY KEY,
    kind TEXT NOT NULL,
    subject TEXT NOT NULL,
    time TEXT NOT NULL,
    job INTEGER NOT NULL,
    open INTEGER NOT NULL
) STRICT;
CREATE INDEX authority_use_by_subject ON authority_use (kind, subject, time);
CREATE INDEX authority_use_by_time ON authority_use (time, id);
CREATE INDEX authority_use_open ON authority_use (job) WHERE open = 1;
)sql";

// Public name servers may go on saying that a record is not there for a while after it was published.
constexpr const char* kSettling = R"sql(
ALTER TABLE publication ADD COLUMN seen_by_all TEXT NOT NULL DEFAULT '';
)sql";

// When the authority is asked next for the time of a certificate's renewal.
constexpr const char* kRenewalInfo = R"sql(
ALTER TABLE job ADD COLUMN ask_renewal TEXT NOT NULL DEFAULT '';
UPDATE job SET ask_renewal = datetime('now', '+' || (abs(random()) % 43200) || ' seconds') WHERE expires <> '';
CREATE INDEX job_by_ask_renewal ON job (ask_renewal, id) WHERE verified = 1;
)sql";

// Troubles are open until they are over, one for each cause; news never are. Of the older ones nobody knows
// what would end them: they count as over, and what still fails is raised anew when it fails the next time.
constexpr const char* kProblemStates = R"sql(
ALTER TABLE problem ADD COLUMN state TEXT NOT NULL DEFAULT 'resolved';
ALTER TABLE problem ADD COLUMN unsolved INTEGER NOT NULL DEFAULT 0;
ALTER TABLE problem ADD COLUMN since TEXT NOT NULL DEFAULT '';
ALTER TABLE problem ADD COLUMN times INTEGER NOT NULL DEFAULT 1;
ALTER TABLE problem ADD COLUMN user_name TEXT NOT NULL DEFAULT '';
ALTER TABLE problem ADD COLUMN about TEXT NOT NULL DEFAULT '';
ALTER TABLE problem ADD COLUMN until_verified INTEGER NOT NULL DEFAULT 0;
UPDATE problem SET since = time, state = CASE WHEN name = 'ambrin_success' THEN 'news' ELSE state END;
CREATE UNIQUE INDEX problem_by_cause ON problem (user_name, about, name, owner) WHERE unsolved = 1;
CREATE INDEX problem_unsolved ON problem (number) WHERE unsolved = 1;
CREATE INDEX problem_by_state ON problem (state, number);
)sql";

// Jobs are looked at for notifications of their certificates' end, each when its time comes.
constexpr const char* kNoticesOfEnds = R"sql(
ALTER TABLE job ADD COLUMN notice_step INTEGER NOT NULL DEFAULT 0;
ALTER TABLE job ADD COLUMN notice_due TEXT NOT NULL DEFAULT '';
UPDATE job SET notice_due = CASE WHEN renew > '' THEN renew WHEN failed = 1 THEN time_started ELSE '' END;
CREATE INDEX job_by_notice ON job (notice_due, id) WHERE notice_due > '';
)sql";

// What people are still to be told, and when.
constexpr const char* kDeliveries = R"sql(
CREATE TABLE delivery (
    id INTEGER PRIMARY KEY,
    problem INTEGER NOT NULL REFERENCES problem (number) ON DELETE CASCADE,
    recipient TEXT NOT NULL,
    digest TEXT NOT NULL
) STRICT;
CREATE INDEX delivery_by_problem ON delivery (problem, recipient, digest);
CREATE INDEX delivery_by_recipient ON delivery (recipient, digest, id);
CREATE TABLE recipient (
    name TEXT PRIMARY KEY,
    next TEXT NOT NULL,
    failures INTEGER NOT NULL,
    digest TEXT NOT NULL,
    handed INTEGER NOT NULL,
    doubtful INTEGER NOT NULL
) STRICT;
CREATE INDEX recipient_by_next ON recipient (next);
CREATE INDEX recipient_handed ON recipient (name) WHERE handed = 1;
)sql";

// Paused jobs are out of everything that starts jobs. Jobs are listed by what needs attention, and by their
// names. These are kept with the last label first, "example.shop.www.", so that what lies below a domain
// stands together; SQL has no ASCII form of them, so they come afterwards, as the setting says.
constexpr const char* kAttention = R"sql(
ALTER TABLE job ADD COLUMN paused INTEGER NOT NULL DEFAULT 0;
DROP INDEX job_due;
DROP INDEX job_waiting;
DROP INDEX job_failed;
DROP INDEX job_verified;
DROP INDEX job_waiting_by_user;
DROP INDEX job_failed_by_user;
DROP INDEX job_verified_by_user;
DROP INDEX job_by_last_run;
DROP INDEX job_by_renewal;
DROP INDEX job_stopped;
CREATE INDEX job_due ON job (due, id)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0;
CREATE INDEX job_waiting ON job (id)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0;
CREATE INDEX job_failed ON job (id) WHERE failed = 1 AND paused = 0;
CREATE INDEX job_verified ON job (id) WHERE verified = 1 AND paused = 0;
CREATE INDEX job_waiting_by_user ON job (user_name, id)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0;
CREATE INDEX job_failed_by_user ON job (user_name, id) WHERE failed = 1 AND paused = 0;
CREATE INDEX job_verified_by_user ON job (user_name, id) WHERE verified = 1 AND paused = 0;
CREATE INDEX job_by_last_run ON job (last_run, due)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0;
CREATE INDEX job_by_renewal ON job (renew, id) WHERE verified = 1 AND paused = 0;
CREATE INDEX job_stopped ON job (due, id) WHERE failed = 1 AND verified = 0 AND paused = 0;
CREATE INDEX job_paused ON job (id) WHERE paused = 1;
CREATE INDEX job_paused_by_user ON job (user_name, id) WHERE paused = 1;
CREATE INDEX job_failing ON job (due, id)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0 AND failures > 0;
CREATE INDEX job_on_its_way ON job (due, id)
    WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0 AND failures = 0;
CREATE INDEX job_by_end ON job (expires, id) WHERE verified = 1 AND paused = 0;
CREATE INDEX job_ending ON job (expires, id) WHERE expires > '';
CREATE INDEX job_ending_of_user ON job (user_name, expires, id) WHERE expires > '';
CREATE TABLE job_name (
    labels TEXT NOT NULL,
    job INTEGER NOT NULL REFERENCES job (id) ON DELETE CASCADE,
    PRIMARY KEY (labels, job)
) STRICT;
CREATE INDEX job_name_by_job ON job_name (job);
INSERT INTO setting (name, value) VALUES ('names_missing', '');
)sql";

// How many jobs are in which state: counting them anew would read them all.
constexpr const char* kCounts = R"sql(
CREATE TABLE job_count (
    state TEXT PRIMARY KEY,
    jobs INTEGER NOT NULL
) STRICT;
INSERT INTO job_count (state, jobs)
    VALUES ('paused', 0), ('verified', 0), ('failed', 0), ('running', 0), ('failing', 0), ('waiting', 0);
UPDATE job_count SET jobs = (SELECT count(*) FROM job WHERE job_count.state =
        CASE WHEN job.paused = 1 THEN 'paused' WHEN job.verified = 1 THEN 'verified'
        WHEN job.failed = 1 THEN 'failed' WHEN job.processing = 1 THEN 'running'
        WHEN job.failures > 0 THEN 'failing' ELSE 'waiting' END);
CREATE TRIGGER job_added AFTER INSERT ON job BEGIN
    UPDATE job_count SET jobs = jobs + 1 WHERE state =
        CASE WHEN NEW.paused = 1 THEN 'paused' WHEN NEW.verified = 1 THEN 'verified'
        WHEN NEW.failed = 1 THEN 'failed' WHEN NEW.processing = 1 THEN 'running'
        WHEN NEW.failures > 0 THEN 'failing' ELSE 'waiting' END
    ; END;
CREATE TRIGGER job_changed AFTER UPDATE OF paused, verified, failed, processing, failures ON job BEGIN
    UPDATE job_count SET jobs = jobs - 1 WHERE state =
        CASE WHEN OLD.paused = 1 THEN 'paused' WHEN OLD.verified = 1 THEN 'verified'
        WHEN OLD.failed = 1 THEN 'failed' WHEN OLD.processing = 1 THEN 'running'
        WHEN OLD.failures > 0 THEN 'failing' ELSE 'waiting' END
    ; UPDATE job_count SET jobs = jobs + 1 WHERE state =
        CASE WHEN NEW.paused = 1 THEN 'paused' WHEN NEW.verified = 1 THEN 'verified'
        WHEN NEW.failed = 1 THEN 'failed' WHEN NEW.processing = 1 THEN 'running'
        WHEN NEW.failures > 0 THEN 'failing' ELSE 'waiting' END
    ; END;
CREATE TRIGGER job_removed AFTER DELETE ON job BEGIN
    UPDATE job_count SET jobs = jobs - 1 WHERE state =
        CASE WHEN OLD.paused = 1 THEN 'paused' WHEN OLD.verified = 1 THEN 'verified'
        WHEN OLD.failed = 1 THEN 'failed' WHEN OLD.processing = 1 THEN 'running'
        WHEN OLD.failures > 0 THEN 'failing' ELSE 'waiting' END
    ; END;
)sql";

// What the web servers serve of the installed certificates.
constexpr const char* kServed = R"sql(
CREATE TABLE served (
    user_name TEXT NOT NULL,
    folder TEXT NOT NULL,
    state TEXT NOT NULL,
    time TEXT NOT NULL,
    detail TEXT NOT NULL,
    PRIMARY KEY (user_name, folder)
) STRICT;
)sql";

// Jobs whose names were not proved are examined, and what that has found is kept until they succeed.
constexpr const char* kExaminations = R"sql(
CREATE TABLE examination (
    job INTEGER PRIMARY KEY REFERENCES job (id) ON DELETE CASCADE,
    asked TEXT NOT NULL
) STRICT;
CREATE INDEX examination_by_time ON examination (asked, job);
CREATE TABLE finding (
    job INTEGER NOT NULL REFERENCES job (id) ON DELETE CASCADE,
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    place TEXT NOT NULL,
    state TEXT NOT NULL,
    detail TEXT NOT NULL,
    time TEXT NOT NULL,
    PRIMARY KEY (job, number)
) STRICT;
)sql";

// Installed certificates that web servers are still to show.
constexpr const char* kSiteChecks = R"sql(
CREATE TABLE site_check (
    user_name TEXT NOT NULL,
    folder TEXT NOT NULL,
    certname TEXT NOT NULL,
    directory TEXT NOT NULL,
    since TEXT NOT NULL,
    next TEXT NOT NULL,
    looks INTEGER NOT NULL,
    PRIMARY KEY (user_name, folder)
) STRICT;
CREATE INDEX site_check_by_next ON site_check (next);
)sql";

// Each job has an authority, and so has each account: older versions had one alone. How many jobs each has is
// counted, as with their states.
constexpr const char* kAuthorities = R"sql(
ALTER TABLE job ADD COLUMN authority TEXT NOT NULL DEFAULT 'ambrin';
ALTER TABLE account ADD COLUMN authority TEXT NOT NULL DEFAULT 'ambrin';
CREATE TABLE authority_count (
    authority TEXT PRIMARY KEY,
    jobs INTEGER NOT NULL
) STRICT;
INSERT INTO authority_count (authority, jobs) SELECT 'ambrin', count(*) FROM job;
CREATE TRIGGER job_added_to_authority AFTER INSERT ON job BEGIN
    INSERT INTO authority_count (authority, jobs) VALUES (NEW.authority, 1)
        ON CONFLICT (authority) DO UPDATE SET jobs = authority_count.jobs + 1
    ; END;
CREATE TRIGGER job_given_to_authority AFTER UPDATE OF authority ON job BEGIN
    UPDATE authority_count SET jobs = jobs - 1 WHERE authority = OLD.authority
    ; INSERT INTO authority_count (authority, jobs) VALUES (NEW.authority, 1)
        ON CONFLICT (authority) DO UPDATE SET jobs = authority_count.jobs + 1
    ; END;
CREATE TRIGGER job_removed_from_authority AFTER DELETE ON job BEGIN
    UPDATE authority_count SET jobs = jobs - 1 WHERE authority = OLD.authority
    ; END;
)sql";

// What is watched from outside, counted while it happens: runs by what became of them and by how long they
// took, notifications by state, certificates by the day on which they end.
constexpr const char* kTallies = R"sql(
CREATE TABLE run_count (
    outcome TEXT NOT NULL,
    reason TEXT NOT NULL,
    runs INTEGER NOT NULL,
    PRIMARY KEY (outcome, reason)
) STRICT;
CREATE TABLE run_duration (
    bound INTEGER PRIMARY KEY,
    runs INTEGER NOT NULL,
    milliseconds INTEGER NOT NULL
) STRICT;
CREATE TABLE problem_count (
    state TEXT PRIMARY KEY,
    problems INTEGER NOT NULL
) STRICT;
INSERT INTO problem_count (state, problems) VALUES ('raised', 0), ('seen', 0), ('resolved', 0), ('news', 0);
UPDATE problem_count SET problems = (SELECT count(*) FROM problem WHERE problem.state = problem_count.state);
CREATE TRIGGER problem_added AFTER INSERT ON problem BEGIN
    UPDATE problem_count SET problems = problems + 1 WHERE state = NEW.state
    ; END;
CREATE TRIGGER problem_changed AFTER UPDATE OF state ON problem WHEN OLD.state <> NEW.state BEGIN
    UPDATE problem_count SET problems = problems - 1 WHERE state = OLD.state
    ; UPDATE problem_count SET problems = problems + 1 WHERE state = NEW.state
    ; END;
CREATE TRIGGER problem_removed AFTER DELETE ON problem BEGIN
    UPDATE problem_count SET problems = problems - 1 WHERE state = OLD.state
    ; END;
CREATE TABLE end_count (
    day TEXT PRIMARY KEY,
    jobs INTEGER NOT NULL
) STRICT;
INSERT INTO end_count (day, jobs)
    SELECT substr(expires, 1, 10), count(*) FROM job WHERE expires > '' GROUP BY substr(expires, 1, 10);
CREATE TRIGGER job_added_with_end AFTER INSERT ON job WHEN NEW.expires > '' BEGIN
    INSERT INTO end_count (day, jobs) VALUES (substr(NEW.expires, 1, 10), 1)
        ON CONFLICT (day) DO UPDATE SET jobs = end_count.jobs + 1
    ; END;
CREATE TRIGGER job_end_changed AFTER UPDATE OF expires ON job WHEN OLD.expires <> NEW.expires BEGIN
    UPDATE end_count SET jobs = jobs - 1 WHERE day = substr(OLD.expires, 1, 10)
    ; DELETE FROM end_count WHERE day = substr(OLD.expires, 1, 10) AND jobs = 0
    ; INSERT INTO end_count (day, jobs) SELECT substr(NEW.expires, 1, 10), 1 WHERE NEW.expires > ''
        ON CONFLICT (day) DO UPDATE SET jobs = end_count.jobs + 1
    ; END;
CREATE TRIGGER job_removed_with_end AFTER DELETE ON job WHEN OLD.expires > '' BEGIN
    UPDATE end_count SET jobs = jobs - 1 WHERE day = substr(OLD.expires, 1, 10)
    ; DELETE FROM end_count WHERE day = substr(OLD.expires, 1, 10) AND jobs = 0
    ; END;
)sql";

// What the service's page needs: who has been let in, who has done what, jobs by name, notifications by who
// is told, and how many runs ended on each day.
constexpr const char* kPage = R"sql(
CREATE TABLE page_session (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    kind TEXT NOT NULL,
    hash TEXT NOT NULL,
    user_name TEXT NOT NULL,
    began TEXT NOT NULL,
    seen TEXT NOT NULL,
    agent TEXT NOT NULL
) STRICT;
CREATE INDEX page_session_by_kind ON page_session (kind, number);
CREATE TABLE page_deed (
    number INTEGER PRIMARY KEY,
    time TEXT NOT NULL,
    who TEXT NOT NULL,
    what TEXT NOT NULL
) STRICT;
CREATE INDEX page_deed_by_time ON page_deed (time, number);
CREATE TABLE run_day (
    day TEXT NOT NULL,
    outcome TEXT NOT NULL,
    runs INTEGER NOT NULL,
    PRIMARY KEY (day, outcome)
) STRICT;
CREATE INDEX job_by_certname ON job (certname, id);
CREATE INDEX job_of_user_by_certname ON job (user_name, certname, id);
CREATE INDEX problem_of_owner ON problem (owner, number) WHERE unsolved = 1;
)sql";

}  // namespace

const std::vector<const char*>& Migrations() {
    static const std::vector<const char*> migrations{kPanelRecords,
                                                     kProcesses,
                                                     kAccountsAndIndexes,
                                                     kPublicationsOfRuns,
                                                     kReloads,
                                                     kFolders,
                                                     kClock,
                                                     kAnsweredQueries,
                                                     kRenewals,
                                                     kRetries,
                                                     kParents,
                                                     kAuthorityUse,
                                                     kSettling,
                                                     kRenewalInfo,
                                                     kProblemStates,
                                                     kNoticesOfEnds,
                                                     kDeliveries,
                                                     kAttention,
                                                     kCounts,
                                                     kServed,
                                                     kExaminations,
                                                     kSiteChecks,
                                                     kAuthorities,
                                                     kTallies,
                                                     kPage};
    return migrations;
}

}  // namespace zelvek
