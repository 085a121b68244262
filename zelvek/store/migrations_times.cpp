// When things are due, what authorities limit, and who is told.
#include "zelvek/store/migration_texts.h"

namespace zelvek::migrations {

// Jobs whose last run ended in the future: the clock was set back.
const char* const kClock = R"sql(
CREATE INDEX job_by_last_run ON job (last_run, due) WHERE verified = 0 AND failed = 0 AND processing = 0;
)sql";

// What was carried out already when its query comes again.
const char* const kAnsweredQueries = R"sql(
CREATE TABLE answered_query (
    identity TEXT PRIMARY KEY,
    answer TEXT NOT NULL,
    time TEXT NOT NULL
) STRICT;
CREATE INDEX answered_query_by_time ON answered_query (time, identity);
)sql";

// Installed certificates end, and are renewed before. When those of older versions do is read from their
// files, one after the other.
const char* const kRenewals = R"sql(
ALTER TABLE job ADD COLUMN expires TEXT NOT NULL DEFAULT '';
ALTER TABLE job ADD COLUMN renew TEXT NOT NULL DEFAULT '';
CREATE INDEX job_by_renewal ON job (renew, id) WHERE verified = 1;
CREATE INDEX job_of_unknown_end ON job (id) WHERE verified = 1 AND expires = '';
)sql";

// Stopped jobs are started anew when their time comes; those of older versions within a day, not all at once.
const char* const kRetries = R"sql(
UPDATE job SET due = datetime('now', '+' || (abs(random()) % 86400) || ' seconds') WHERE failed = 1;
CREATE INDEX job_stopped ON job (due, id) WHERE failed = 1 AND verified = 0;
)sql";

// A wildcard stands for all names one label below, so whose these are is looked up.
const char* const kParents = R"sql(
ALTER TABLE domain ADD COLUMN parent TEXT NOT NULL DEFAULT '';
UPDATE domain SET parent = substr(ascii, instr(ascii, '.') + 1);
CREATE INDEX domain_by_parent ON domain (parent, user_name);
)sql";

// What jobs have used of that which an authority limits.
const char* const kAuthorityUse = R"sql(
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
const char* const kSettling = R"sql(
ALTER TABLE publication ADD COLUMN seen_by_all TEXT NOT NULL DEFAULT '';
)sql";

// When the authority is asked next for the time of a certificate's renewal.
const char* const kRenewalInfo = R"sql(
ALTER TABLE job ADD COLUMN ask_renewal TEXT NOT NULL DEFAULT '';
UPDATE job SET ask_renewal = datetime('now', '+' || (abs(random()) % 43200) || ' seconds') WHERE expires <> '';
CREATE INDEX job_by_ask_renewal ON job (ask_renewal, id) WHERE verified = 1;
)sql";

// Troubles are open until they are over, one for each cause; news never are. Of the older ones nobody knows
// what would end them: they count as over, and what still fails is raised anew when it fails the next time.
const char* const kProblemStates = R"sql(
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
const char* const kNoticesOfEnds = R"sql(
ALTER TABLE job ADD COLUMN notice_step INTEGER NOT NULL DEFAULT 0;
ALTER TABLE job ADD COLUMN notice_due TEXT NOT NULL DEFAULT '';
UPDATE job SET notice_due = CASE WHEN renew > '' THEN renew WHEN failed = 1 THEN time_started ELSE '' END;
CREATE INDEX job_by_notice ON job (notice_due, id) WHERE notice_due > '';
)sql";

// What people are still to be told, and when.
const char* const kDeliveries = R"sql(
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

}  // namespace zelvek::migrations
