// How PostgreSQL finds what the store's statements ask for: by an index, as SQLite does.
#include <json/json.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

#include "../zelvek_store/engine.h"
#include "../zelvek_store/store_operations.h"
#include "server.h"
#include "zelvek/postgresql/dialect.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr int kFilledJobs = 200;

// Tables that stay small, as for SQLite; counters have a few rows, and settings a few dozen.
const std::set<std::string> kFewRows{"reader",        "authority_count", "run_count", "run_duration",
                                     "problem_count", "job_count",       "setting"};

// Partial indexes that hold just what is looked for, so that they may be read from one end to the other.
const std::set<std::string> kJustThese{
    "job_running",          "job_running_by_user",  "job_of_unknown_end",  "job_stopped",
    "job_failed",           "job_verified",         "job_waiting",         "job_due",
    "publication_unwanted", "publication_not_kept", "publication_missing", "authority_use_open",
    "recipient_handed",     "job_paused",           "job_failing",         "job_on_its_way",
    "job_by_end",           "job_ending",           "examination_by_time", "problem_unsolved",
    "job_waiting_by_user"};  // for users' turns: few jobs wait that are not due

bool IsIndexScan(const std::string& kind) {
    return kind == "Index Scan" || kind == "Index Only Scan" || kind == "Bitmap Index Scan";
}

/// The steps of a plan that read a growing table, or an index of one, from one end to the other.
void CollectReaders(const Json::Value& node, std::vector<std::string>& found) {
    const std::string kind = node["Node Type"].asString();
    const std::string table = node["Relation Name"].asString();
    const std::string index = node["Index Name"].asString();
    if (kind == "Seq Scan" && !kFewRows.contains(table)) found.push_back("Seq Scan " + table);
    const bool bounded =
        node.isMember("Index Cond") || kJustThese.contains(index) || kFewRows.contains(table);
    if (IsIndexScan(kind) && !bounded) found.push_back(kind + " " + index);
    for (const Json::Value& below : node["Plans"]) CollectReaders(below, found);
}

class ServerPlans : public ::testing::Test {
protected:
    ServerPlans() : server_(PostgresqlServer::Shared()) {
        server_.Renew();
        planner_ = server_.Connect();
        ::PQclear(
            ::PQexec(planner_.get(),
                     "SET enable_seqscan = off; SET plan_cache_mode = force_generic_plan; SET jit = off"));
        store_ = std::make_unique<Store>(server_.Url());
        Do([](Transaction& transaction) {
            for (int number = 0; number < kFilledJobs; ++number) {
                Job job = FilledJob(std::to_string(number));
                job.user_name = number % 10 == 0 ? "anna" : job.user_name;
                job.id = jobs::Add(transaction, job);
                jobs::Save(transaction, job);
            }
        });
    }

    void Do(const std::function<void(Transaction&)>& operation) {
        Transaction transaction(*store_);
        operation(transaction);
        transaction.Commit();
    }

    /// What is wrong with the plans of all statements that the store has prepared.
    std::vector<std::string> Findings() {
        std::vector<std::string> statements;
        Do([&](Transaction& transaction) { statements = transaction.Prepared(); });
        std::vector<std::string> findings;
        for (const std::string& statement : statements) {
            if (statement.starts_with("ALTER")) continue;
            std::vector<std::string> readers;
            CollectReaders(PlanOf(statement), readers);
            for (const std::string& reader : readers) findings.push_back(reader + " | " + statement);
        }
        return findings;
    }

    PostgresqlServer& server_;
    std::unique_ptr<Store> store_;
    PostgresqlServer::Session planner_{nullptr, &::PQfinish};

private:
    /// The plan for whatever values. A table of a few rows would be read whole: that is forbidden.
    Json::Value PlanOf(const std::string& statement) {
        const std::string numbered = postgresql::Numbered(statement);
        std::string values;
        for (int place = 1; numbered.find("$" + std::to_string(place)) != std::string::npos; ++place)
            values += place == 1 ? "NULL" : ", NULL";
        const std::string text = "DEALLOCATE ALL; PREPARE asked AS " + numbered +
                                 "; EXPLAIN (FORMAT JSON) EXECUTE asked" +
                                 (values.empty() ? "" : "(" + values + ")");
        const std::unique_ptr<PGresult, void (*)(PGresult*)> plan(::PQexec(planner_.get(), text.c_str()),
                                                                  &::PQclear);
        if (::PQntuples(plan.get()) != 1) throw std::runtime_error(::PQerrorMessage(planner_.get()));
        Json::Value json;
        std::istringstream(::PQgetvalue(plan.get(), 0, 0)) >> json;
        return json[0]["Plan"];
    }
};

// Behaviours of: Store

// Behaviour: On PostgreSQL, too, no operation of the store reads a growing table from one end to the other
TEST_F(ServerPlans, EveryStatementUsesAnIndex) {
    for (const auto& [name, operation] : AllOperations()) Do(operation);
    EXPECT_THAT(Findings(), IsEmpty());
}

// Behaviour: On PostgreSQL, too, no operation ...
TEST_F(ServerPlans, WhatReadsMuchIsFound) {
    std::vector<std::string> statements;
    for (const std::string statement :
         {"SELECT id FROM job WHERE domain = :name", "DELETE FROM job_event WHERE detail = :detail",
          "SELECT count(*) FROM account", "SELECT id FROM job_event ORDER BY id"}) {
        Do([&](Transaction& transaction) { transaction.Prepare(statement); });
        statements.push_back(statement);
    }
    const std::vector<std::string> findings = Findings();
    for (const std::string& statement : statements)
        EXPECT_THAT(findings, Contains(HasSubstr("| " + statement)));
}

}  // namespace

}  // namespace zelvek::testing
