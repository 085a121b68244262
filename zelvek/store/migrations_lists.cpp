// What needs attention first, how many there are, and what was seen outside.
#include "zelvek/store/migration_texts.h"

namespace zelvek::migrations {

// Paused jobs are out of everything that starts jobs. Jobs are listed by what needs attention, and by their
// names. These are kept with the last label first, "example.shop.www.", so that what lies below a domain
// stands together; SQL has no ASCII form of them, so they come afterwards, as the setting says.
const char* const kAttention = R"sql(
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
const char* const kCounts = R"sql(
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
const char* const kServed = R"sql(
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
const char* const kExaminations = R"sql(
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
const char* const kSiteChecks = R"sql(
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
const char* const kAuthorities = R"sql(
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

}  // namespace zelvek::migrations
