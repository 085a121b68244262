#include "query_plan.h"

#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <regex>
#include <set>

namespace zelvek::testing {

namespace {

// Indexes that hold just what is looked for, so that they may be read from one end to the other.
const std::set<std::string> kHoldsWhatIsLookedFor{
    "job_running",          "job_running_by_user",  "job_of_unknown_end",  "job_stopped",
    "job_failed",           "job_verified",         "job_waiting",         "job_due",
    "publication_unwanted", "publication_not_kept", "publication_missing", "authority_use_open",
    "recipient_handed",     "job_paused",           "job_failing",         "job_on_its_way",
    "job_by_end",           "job_ending",           "examination_by_time"};

// Indexes over times, of which all that is older, or newer, than a time is looked for, and over names, of
// which all with one beginning are.
const std::set<std::string> kOverTimes{
    "answered_query_by_time",      "csr_by_time",        "job_by_last_run",   "job_by_renewal",
    "job_event_by_time",           "problem_by_time",    "reload_by_next",    "authority_use_by_time",
    "job_by_ask_renewal",          "job_by_notice",      "recipient_by_next", "delivery_by_recipient",
    "sqlite_autoindex_job_name_1", "site_check_by_next", "page_deed_by_time", "job_by_certname"};

// Tables that stay small: the sweep forgets readers that have died, "waiting" is what is due, and "busy" has
// the users with runs under way; there are few authorities, and few words
// and bounds by which runs and notifications are counted; of days there are as many as histories are kept.
const std::set<std::string> kSmallTables{"reader",    "waiting",      "busy",          "authority_count",
                                         "run_count", "run_duration", "problem_count", "run_day"};

// The index of which just what is looked for is read, so that it may be sorted: the jobs that are due, for
// users to take turns.
const std::string kDue = "job_due";

// Indexes over all that a user has, who may have most of it: not for those in one state, or of one
// certificate, among a user's jobs.
const std::set<std::string> kAllOfAUser{"job_by_user"};

/// One line of a query plan.
struct Step {
    std::string way;    // "SCAN" or "SEARCH", or another word
    std::string table;  // empty for other words
    std::string index;  // empty for none and for the table's own number
    std::string limits;

    bool HasValue() const { return limits.find("=?") != std::string::npos; }
};

Step Parse(const std::string& line) {
    static const std::regex form(
        R"((SCAN|SEARCH) (\w+)(?: USING (?:AUTOMATIC )?(?:COVERING )?(?:INDEX ?(\w*)|INTEGER PRIMARY KEY))?(?: \((.*)\))?.*)");
    std::smatch found;
    if (!std::regex_match(line, found, form)) return {line, "", "", ""};
    return {found[1], found[2], found[3], found[4]};
}

/// A page of a whole table has no condition but where it begins, so it reads no row that it does not give.
bool IsPage(const std::string& statement) {
    static const std::regex form(R"( WHERE [a-z.]+ > :after ORDER BY [a-z.]+ LIMIT :most$)");
    static const std::regex backwards(R"( WHERE [a-z.]+ < :before ORDER BY [a-z.]+ DESC LIMIT :most$)");
    return std::regex_search(statement, form) || std::regex_search(statement, backwards);
}

/// The same of the open notifications, by the index that holds just these.
bool IsPageOfUnsolved(const Step& step, const std::string& statement) {
    static const std::regex form(R"( WHERE unsolved = 1 AND number > :after ORDER BY number LIMIT :most$)");
    return step.index == "problem_unsolved" && std::regex_search(statement, form);
}

/// Folders come after the users in their index, which holds all of a user's jobs.
bool ReadsAllOfAUser(const Step& step) {
    return kAllOfAUser.contains(step.index) ||
           (step.index == "job_by_folder" && step.limits.find("folder=?") == std::string::npos);
}

bool AsksForFewOfAUser(const std::string& statement) {
    static const std::regex form(R"(\.(verified|failed|processing|paused) = [01]|folder = :folder )");
    return std::regex_search(statement, form);
}

/// Some of the jobs that wait are looked for, by a time of theirs.
bool AsksForATime(const std::string& statement) {
    static const std::regex form(R"((due|last_run) [<>=]+ [:'])");
    return statement.find("processing = 0") != std::string::npos && std::regex_search(statement, form);
}

/// The uses of one subject are looked for, not those of a time.
bool AsksForASubject(const std::string& statement) {
    return statement.find("subject = :subject") != std::string::npos;
}

/// Whether the step may read much more than what is looked for.
bool ReadsTooMuch(const Step& step, const std::string& statement) {
    if (step.table.empty() || kSmallTables.contains(step.table)) return false;
    if (ReadsAllOfAUser(step) && AsksForFewOfAUser(statement)) return true;
    if (kOverTimes.contains(step.index) && AsksForASubject(statement)) return true;
    const bool running = step.index == "job_running_by_user";  // whatever the time
    if (step.way == "SCAN" && AsksForATime(statement) && step.table == "job" && !running) return true;
    if (step.index == kDue && statement.find(" AND job.failures") != std::string::npos) return true;
    if (kHoldsWhatIsLookedFor.contains(step.index)) return false;
    if (step.way == "SCAN") return step.table != "CONSTANT";
    if (step.HasValue() || kOverTimes.contains(step.index) || IsPage(statement)) return false;
    if (IsPageOfUnsolved(step, statement)) return false;
    const bool first_of_all = step.limits.empty();  // the smallest or the largest of an index
    const bool first_few =
        statement.find("< (SELECT min(number) FROM problem) + :limit") != std::string::npos;
    return !first_of_all && !first_few;
}

}  // namespace

std::vector<std::string> PlanOf(SQLite::Database& database, const std::string& statement) {
    std::vector<std::string> lines;
    SQLite::Statement plan(database, "EXPLAIN QUERY PLAN " + statement);
    while (plan.executeStep()) lines.push_back(plan.getColumn("detail").getString());
    return lines;
}

std::vector<std::string> FindingsOf(const std::vector<std::string>& plan, const std::string& statement) {
    const bool few = std::any_of(plan.begin(), plan.end(),
                                 [](const std::string& line) { return Parse(line).index == kDue; });
    std::vector<std::string> findings;
    for (const std::string& line : plan) {
        const bool sorts = line.find("TEMP B-TREE") != std::string::npos && !few;
        const bool small = kSmallTables.contains(Parse(line).table);
        const bool builds_an_index = line.find("AUTOMATIC") != std::string::npos && !small;
        if (sorts || builds_an_index || ReadsTooMuch(Parse(line), statement)) {
            findings.push_back(line + " | " + statement);
        }
    }
    return findings;
}

}  // namespace zelvek::testing
