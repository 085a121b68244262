// How SQLite finds what the store's statements ask for: by an index, so that work grows with what is found.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>

#include "engine.h"
#include "query_plan.h"
#include "store_operations.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kJobs = 2000;

/// The operations that the store's headers declare.
std::set<std::string> DeclaredOperations() {
    static const std::regex form(R"((\w+)\(Transaction& transaction)");
    static const std::regex space(R"(namespace zelvek::(\w+))");
    std::set<std::string> names;
    for (const auto& file : fs::directory_iterator(STORE_SOURCES)) {
        if (file.path().extension() != ".h") continue;
        std::ifstream in(file.path());
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        std::smatch room;
        if (!std::regex_search(text, room, space)) continue;
        for (std::sregex_iterator name(text.begin(), text.end(), form), end; name != end; ++name) {
            names.insert(room[1].str() + "::" + (*name)[1].str());
        }
    }
    return names;
}

class QueryPlans : public ::testing::Test {
protected:
    QueryPlans() {
        std::string pattern = (fs::temp_directory_path() / "zelvek.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        store_ = std::make_unique<Store>(File());
        Transaction transaction(*store_);
        for (int number = 0; number < kJobs; ++number) {
            Job job = FilledJob(std::to_string(number));
            job.user_name = number % 10 == 0 ? "anna" : job.user_name;
            job.id = jobs::Add(transaction, job);
            jobs::Save(transaction, job);
        }
        transaction.Commit();
    }

    ~QueryPlans() override {
        store_.reset();
        fs::remove_all(folder_);
    }

    fs::path File() const { return folder_ / "zelvek.db"; }

    void Do(const Operation& operation) {
        Transaction transaction(*store_);
        operation(transaction);
        transaction.Commit();
    }

    /// What is wrong with the plans of all statements that the store has prepared.
    std::vector<std::string> Findings() {
        std::vector<std::string> statements;
        Do([&](Transaction& transaction) { statements = transaction.Prepared(); });
        SQLite::Database database(File().string());
        std::vector<std::string> findings;
        for (const std::string& statement : statements) {
            const auto found = FindingsOf(PlanOf(database, statement), statement);
            findings.insert(findings.end(), found.begin(), found.end());
        }
        return findings;
    }

    fs::path folder_;
    std::unique_ptr<Store> store_;
};

// Behaviours of: Store

// Behaviour: No operation of the store reads a growing table from one end to the other or sorts it: each
//   statement finds what it looks for by an index
TEST_F(QueryPlans, EveryStatementUsesAnIndex) {
    for (const auto& [name, operation] : AllOperations()) Do(operation);
    EXPECT_THAT(Findings(), IsEmpty());
    SQLite::Database database(File().string());
    EXPECT_FALSE(database.tableExists("sqlite_stat1")) << "the plans must not depend on statistics";
    EXPECT_GE(database.execAndGet("SELECT count(*) FROM job").getInt(), kJobs - 1);
}

// Behaviour: No operation of the store ...
TEST_F(QueryPlans, EveryOperationIsCarriedOut) {
    std::set<std::string> names;
    for (const auto& [name, operation] : AllOperations()) names.insert(name);
    EXPECT_EQ(DeclaredOperations(), names);
}

// Behaviour: No operation of the store ...
TEST_F(QueryPlans, WhatReadsOrSortsMuchIsFound) {
    const std::map<std::string, std::string> bad{
        {"SELECT id FROM job WHERE domain = :name", "SCAN job"},
        {"SELECT id FROM job WHERE user_name = :user ORDER BY domain", "TEMP B-TREE"},
        {"SELECT id FROM job WHERE job.id > :after AND res_name = :name ORDER BY id LIMIT :most",
         "SEARCH job"},
        {"SELECT count(*) FROM account", "SCAN account"},
        {"SELECT job.id FROM job JOIN domain ON domain.name = job.domain WHERE job.id = :id", "SCAN domain"},
        {"DELETE FROM job_event WHERE detail = :detail", "SCAN job_event"},
        {"SELECT id FROM job_event ORDER BY time", "SCAN job_event"},
        {"SELECT id FROM job_event ORDER BY id", "SCAN job_event"}};
    for (const auto& [statement, finding] : bad) {
        Do([&, &text = statement](Transaction& transaction) { transaction.Prepare(text); });
        EXPECT_THAT(Findings(), Contains(AllOf(HasSubstr(finding), HasSubstr(statement))));
    }
    EXPECT_GE(Findings().size(), bad.size());
}

// Behaviour: Every index of the database is one that a statement needs
TEST_F(QueryPlans, EveryIndexIsNeeded) {
    for (const auto& [name, operation] : AllOperations()) Do(operation);
    SQLite::Database database(File().string(), SQLite::OPEN_READWRITE);
    std::map<std::string, std::string> indexes;
    SQLite::Statement select(database,
                             "SELECT name, sql FROM sqlite_master WHERE type = 'index' AND sql <> ''");
    while (select.executeStep()) indexes[select.getColumn(0).getString()] = select.getColumn(1).getString();
    select.reset();
    EXPECT_GE(indexes.size(), 10u);
    for (const auto& [name, text] : indexes) {
        database.exec("DROP INDEX " + name);
        EXPECT_THAT(Findings(), Not(IsEmpty())) << name;
        database.exec(text);
    }
    EXPECT_THAT(Findings(), IsEmpty());
}

// Behaviour: Rows that refer to others are found by an index, so that removing what they refer to reads no
//   whole table
TEST_F(QueryPlans, ReferencesHaveAnIndex) {
    SQLite::Database database(File().string());
    SQLite::Statement references(
        database,
        "SELECT t.name, f.\"from\", EXISTS (SELECT 1 FROM pragma_index_list(t.name) i, "
        "pragma_index_info(i.name) c"
        " WHERE c.seqno = 0 AND c.name = f.\"from\" AND i.partial = 0)"
        " OR (SELECT group_concat(name) FROM pragma_table_info(t.name) WHERE pk > 0) = f.\"from\""
        " FROM sqlite_master t, pragma_foreign_key_list(t.name) f WHERE t.type = 'table'");
    int count = 0;
    while (references.executeStep()) {
        ++count;
        EXPECT_TRUE(references.getColumn(2).getInt())
            << references.getColumn(0).getString() << "." << references.getColumn(1).getString();
    }
    EXPECT_EQ(count, 7);
}

}  // namespace

}  // namespace zelvek::testing
