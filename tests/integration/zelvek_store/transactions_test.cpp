// What holds for every operation: whole or not at all, and usable after a failure.
#include <stdexcept>
#include <thread>

#include "engine.h"
#include "zelvek/base/error.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

class Transactions : public StoreTest {
protected:
    void Put(const std::string& name, const std::string& value) {
        Do([&](Transaction& transaction) {
            transaction.Prepare("INSERT INTO setting (name, value) VALUES (:name, :value)")
                .With(name)
                .With(value)
                .Run();
        });
    }

    /// The sentence of the error that the work ends with.
    template <class Work>
    std::string ErrorOf(const Work& work) {
        try {
            Do(work);
        } catch (const Error& error) {
            EXPECT_EQ(error.code(), Code::kInternal);
            return error.what();
        }
        ADD_FAILURE() << "no error";
        return "";
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Transactions, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A transaction that is not committed leaves nothing
TEST_P(Transactions, NotCommittedLeaveNothing) {
    const int id = AddJob(FilledJob("a"));
    const Job before = FindJob(id);
    {
        Transaction transaction(store());
        Job job = jobs::Find(transaction, id);
        job.kid = "other";
        jobs::Save(transaction, job);
        jobs::Add(transaction, FilledJob("b"));
        history::Add(transaction, id, {"t", "s", "e", "d"});
        EXPECT_EQ(jobs::Find(transaction, id).kid, "other");
    }
    EXPECT_EQ(FindJob(id), before);
    EXPECT_EQ(Rows("job"), 1);
    EXPECT_EQ(Rows("account"), 1);
    EXPECT_EQ(Rows("job_event"), 0);
    Reopen();
    EXPECT_EQ(FindJob(id), before);
}

// Behaviour: A transaction that an exception ends half-way leaves nothing, and the next one works
TEST_P(Transactions, EndedHalfWayLeaveNothing) {
    EXPECT_THROW(Do([](Transaction& transaction) {
                     jobs::Add(transaction, FilledJob("a"));
                     throw std::runtime_error("half-way");
                 }),
                 std::runtime_error);
    EXPECT_EQ(Rows("job"), 0);
    EXPECT_EQ(FindJob(AddJob(FilledJob("b"))).domain, "b domain");
}

// Behaviour: A transaction that the engine ends half-way leaves nothing, and the next one works
TEST_P(Transactions, FailedHalfWayLeaveNothing) {
    ErrorOf([](Transaction& transaction) {
        const int id = jobs::Add(transaction, FilledJob("a"));
        history::Add(transaction, id, {"t", "s", "e", "d"});
        history::Add(transaction, id + 1, {"t", "s", "e", "d"});
    });
    EXPECT_EQ(Rows("job"), 0);
    EXPECT_EQ(Rows("job_event"), 0);
    const int id = AddJob();
    Do([&](Transaction& transaction) { history::Add(transaction, id, {"t", "s", "e", "d"}); });
    EXPECT_EQ(Rows("job_event"), 1);
}

// Behaviour: A transaction that ends while rows of a list are still to come lets the next one begin
TEST_P(Transactions, MayEndInTheMiddleOfAList) {
    AddJob();
    AddJob();
    int id = 0;
    for (int time = 0; time < 3; ++time) {
        EXPECT_THROW(Do([&](Transaction& transaction) {
                         Statement select = transaction.Prepare("SELECT id FROM job ORDER BY id");
                         select.Into(id).Next();
                         throw std::runtime_error("in the middle");
                     }),
                     std::runtime_error);
        Do([&](Transaction& transaction) {
            transaction.Prepare("SELECT id FROM job ORDER BY id").Into(id).Next();
        });
    }
    EXPECT_EQ(Rows("job"), 2);
}

// Behaviour: A statement that has failed can be used again, with other values
TEST_P(Transactions, AStatementThatFailedIsUsableAgain) {
    Put("a", "1");
    for (int time = 0; time < 3; ++time) {
        EXPECT_THROW(Put("a", "2"), Error);
        Put("b" + std::to_string(time), "3");
    }
    EXPECT_EQ(Rows("setting"), 4);
}

// Behaviour: A variable gets the rows that were asked for, no later one, and keeps the last of them
TEST_P(Transactions, AVariableGetsTheRowsAskedFor) {
    for (const std::string name : {"a", "b"}) Put(name, "value of " + name);
    Do([](Transaction& transaction) {
        const std::string text = "SELECT name, value FROM setting WHERE name < :end ORDER BY name";
        std::string name;
        std::string value;
        transaction.Prepare(text).With("z").Into(name).Into(value).Next();
        EXPECT_EQ(name + ": " + value, "a: value of a");
        {
            Statement select = transaction.Prepare(text);
            select.With("z").Into(name).Into(value);
            while (select.Next()) continue;
            EXPECT_FALSE(select.Next());
        }
        EXPECT_EQ(name + ": " + value, "b: value of b");
        EXPECT_FALSE(transaction.Prepare(text).With("a").Into(name).Into(value).Next());
        EXPECT_EQ(name + ": " + value, "b: value of b");
    });
}

// Behaviour: One text may be in use several times at once; each use has its own values and its own place in
//   the list
TEST_P(Transactions, OneTextMayBeInUseTwice) {
    const std::vector<int> ids{AddJob(), AddJob(), AddJob()};
    const std::string text = "SELECT id FROM job WHERE id > :after ORDER BY id";
    Do([&](Transaction& transaction) {
        std::vector<int> seen;
        int outer_id = 0;
        Statement outer = transaction.Prepare(text);
        outer.With(0).Into(outer_id);
        while (outer.Next()) {
            int inner_id = 0;
            seen.push_back(outer_id);
            if (transaction.Prepare(text).With(outer_id).Into(inner_id).Next()) seen.push_back(inner_id);
        }
        EXPECT_THAT(seen, ElementsAre(ids[0], ids[1], ids[1], ids[2], ids[2]));
    });
}

// Behaviour: A statement tells how many rows it has changed
TEST_P(Transactions, StatementsCountWhatTheyChange) {
    for (const std::string name : {"a", "b", "c"}) Put(name, "1");
    Do([](Transaction& transaction) {
        const auto remove = [&](const std::string& after) {
            return transaction.Prepare("DELETE FROM setting WHERE name > :after").With(after).Run();
        };
        EXPECT_EQ(remove("a"), 2);
        EXPECT_EQ(remove("a"), 0);
        EXPECT_EQ(remove(""), 1);
    });
}

// Behaviour: The same statement is prepared once, however often it is used
TEST_P(Transactions, StatementsArePreparedOnce) {
    AddJob();
    const auto prepared = Do([](Transaction& transaction) { return transaction.Prepared(); });
    for (int time = 0; time < 3; ++time) AddJob();
    EXPECT_EQ(Do([](Transaction& transaction) { return transaction.Prepared(); }), prepared);
    EXPECT_THAT(prepared, Not(SizeIs(0)));
}

// Behaviour: An error of the store holds neither a value nor the statement, which may hold a key
TEST_P(Transactions, ErrorsHoldNoValueAndNoStatement) {
    const int id = AddJob();
    std::vector<std::string> errors;
    Put("SECRET", "SECRET");
    errors.push_back(ErrorOf([](Transaction& transaction) {
        transaction.Prepare("INSERT INTO setting (name, value) VALUES (:name, :value)")
            .With("SECRET")
            .With("SECRET")
            .Run();
    }));
    errors.push_back(ErrorOf([](Transaction& transaction) {
        std::string name;
        transaction.Prepare("INSERT INTO setting (name, value) VALUES (:name, :value) RETURNING name")
            .With("SECRET")
            .With("SECRET")
            .Into(name)
            .Next();
    }));
    errors.push_back(ErrorOf([&](Transaction& transaction) {
        history::Add(transaction, id + 1, {"SECRET", "SECRET", "SECRET", "SECRET"});
    }));
    errors.push_back(ErrorOf([](Transaction& transaction) {
        problems::Raise(transaction, {"1", "n", "l", "o", "t", {{"SECRET", "SECRET"}, {"SECRET", "SECRET"}}});
    }));
    errors.push_back(ErrorOf([](Transaction& transaction) {
        transaction.Prepare("INSERT INTO domain (name, ascii) VALUES (:name, :ascii)")
            .With("SECRET")
            .With("SECRET")
            .Run();
    }));
    for (const std::string& error : errors) {
        EXPECT_NE(error, "");
        EXPECT_THAT(error, Not(HasSubstr("SECRET")));
        EXPECT_THAT(error, Not(HasSubstr("INSERT")));
        EXPECT_THAT(error, Not(HasSubstr("VALUES")));
    }
}

// Behaviour: Many threads that work on the store at once lose nothing of each other's, and each sees its
//   own whole work
TEST_P(Transactions, OfManyThreadsLoseNothing) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 25;
    const int shared = AddJob();
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([this, shared, name = std::to_string(number)] {
            for (int round = 0; round < kRounds; ++round) {
                const int id = AddJob(FilledJob(name));
                EXPECT_EQ(FindJob(id).domain, name + " domain");
                Do([&](Transaction& transaction) {
                    Job job = jobs::Find(transaction, shared);
                    ++job.attempt_count;
                    jobs::Save(transaction, job);
                    history::Add(transaction, shared, {"t", "s", std::to_string(job.attempt_count), "d"});
                });
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(Rows("job"), 1 + kThreads * kRounds);
    EXPECT_EQ(FindJob(shared).attempt_count, kThreads * kRounds);
    Transaction transaction(store());
    const auto events = history::Of(transaction, shared);
    ASSERT_THAT(events, SizeIs(kThreads * kRounds));
    for (std::size_t i = 0; i < events.size(); ++i) EXPECT_EQ(events[i].event, std::to_string(i + 1));
}

}  // namespace

}  // namespace zelvek::testing
