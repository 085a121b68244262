// What the panel keeps, and whose processes it belongs to: the first versions.
#include "zelvek/store/migration_texts.h"

namespace zelvek::migrations {

// Job ids are never used again (AUTOINCREMENT): a late plug-in of a removed job must not find another one.
const char* const kPanelRecords = R"sql(
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
const char* const kProcesses = R"sql(
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
const char* const kAccountsAndIndexes = R"sql(
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
const char* const kPublicationsOfRuns = R"sql(
ALTER TABLE publication ADD COLUMN withdrawn_pid INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN withdrawn_start INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN missing INTEGER NOT NULL DEFAULT 0;
ALTER TABLE publication ADD COLUMN found INTEGER NOT NULL DEFAULT 0;
CREATE INDEX publication_missing ON publication (id) WHERE missing = 1 AND unwanted = 0;
)sql";

// Certificates that the web server has not taken over yet.
const char* const kReloads = R"sql(
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
const char* const kFolders = R"sql(
ALTER TABLE job ADD COLUMN folder TEXT NOT NULL DEFAULT '';
INSERT INTO setting (name, value) VALUES ('folders_missing', '');
CREATE INDEX job_by_folder ON job (user_name, folder);
)sql";

}  // namespace zelvek::migrations
