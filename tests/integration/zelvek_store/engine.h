#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/base/process.h"
#include "zelvek/store/store.h"

namespace zelvek::testing {

/// What the store's operations are tested on. The tests themselves name no engine and use the SQL of all.
struct Engine {
    std::string name;

    /// Opens the database that belongs to this folder: a new one where the folder is empty.
    std::function<std::unique_ptr<Store>(const std::filesystem::path& folder)> open;
};

std::vector<Engine> Engines();

std::string EngineName(const ::testing::TestParamInfo<Engine>& info);

/// A new database on each engine.
class StoreTest : public ::testing::TestWithParam<Engine> {
protected:
    StoreTest();
    ~StoreTest() override;

    /// As a restart does.
    void Reopen();

    Store& store() { return *store_; }

    /// Does the work in a transaction of its own, which is committed.
    template <class Work>
    auto Do(const Work& work) -> decltype(work(std::declval<Transaction&>())) {
        Transaction transaction(*store_);
        if constexpr (std::is_void_v<decltype(work(transaction))>) {
            work(transaction);
            transaction.Commit();
        } else {
            auto result = work(transaction);
            transaction.Commit();
            return result;
        }
    }

    /// How many rows a table has: what no operation tells.
    long long Rows(const std::string& table);

    /// Stores the job as it is, all its fields, and returns its id. It has no holder.
    int AddJob(Job job = {});

    /// A job that is due at that time, with one of its flags on.
    int AddDue(const std::string& due, bool Job::*flag = nullptr);

    Job FindJob(int id);

private:
    std::filesystem::path folder_;
    std::unique_ptr<Store> store_;
};

/// A job whose texts and numbers differ from field to field, and with `text` from job to job; its flags are
/// off.
Job FilledJob(const std::string& text);

/// Texts that a careless statement or a narrow column would change.
const std::vector<std::string>& AwkwardTexts();

/// The keys of the fields that two jobs have different values for.
std::vector<std::string> Differences(const Job& job, const Job& other);

/// The test's own process.
Process Living();

/// A process that has ended: its id is another's now.
Process Dead();

/// A further living process, as long as this lives.
class OtherProcess {
public:
    OtherProcess();
    ~OtherProcess();
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    Process process() const;

private:
    pid_t pid_;
};

}  // namespace zelvek::testing
