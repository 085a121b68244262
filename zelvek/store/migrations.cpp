#include "zelvek/store/migrations.h"

#include "zelvek/store/migration_texts.h"

namespace zelvek {

namespace {

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

// A user of the panel sees the notifications about their own certificates; those about nobody's are not among
// them, and what asks for a cause has an index of its own.
constexpr const char* kProblemsOfUsers =
    "CREATE INDEX problem_by_user ON problem (user_name, number) WHERE user_name > '';\n";

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
    using namespace migrations;
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
                                                     kProblemsOfUsers,
                                                     kPage};
    return migrations;
}

}  // namespace zelvek
