#pragma once

#include <SQLiteCpp/Database.h>
#include <json/json.h>

#include <memory>

#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

inline std::string InDays(int days) { return vek_date::DateTime().AddDays(days).AsDateTime(); }

/// A service, and what its command line says of jobs.
class JobCommands : public ServiceTest {
protected:
    Json::Value Json(std::vector<std::string> words) {
        words.emplace_back("--json");
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        Json::Value value;
        std::string errors;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(ended.out.data(), ended.out.data() + ended.out.size(), &value, &errors))
            << errors << ended.out;
        return value;
    }

    /// The ids of the jobs that `job list` shows, in its order.
    std::string Listed(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"job", "list"});
        std::string ids;
        for (const Json::Value& job : Json(options)) ids += (ids.empty() ? "" : " ") + job["id"].asString();
        return ids;
    }

    std::string ErrorOfCommand(const std::vector<std::string>& words) {
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 1) << ended.out;
        return ended.err;
    }

    /// Changes the database of the service, which is started anew.
    void Change(const std::string& statements) {
        Stop();
        SQLite::Database(Database().string(), SQLite::OPEN_READWRITE).exec(statements);
        Start();
    }

    /// Jobs in every state: what needs attention first is 7 6 5 4 3 2 1.
    void AddOfEveryState() {
        for (const char* name : {"paused", "late", "early", "fresh", "failing", "again", "stopped"})
            AddJob({{"domain", std::string(name) + ".example"}, {"certname", name}});
        Change(
            "UPDATE job SET paused = 1 WHERE id = 1;"
            "UPDATE job SET verified = 1, expires = '" +
            InDays(60) +
            "', renew = '2999-02-03 04:05:06' WHERE id = 2;"
            "UPDATE job SET verified = 1, expires = '" +
            InDays(20) +
            "', renew = '' WHERE id = 3;"
            "UPDATE job SET due = '2999-01-02 03:04:05' WHERE id = 4;"
            "UPDATE job SET failures = 1, due = '2998-01-03 00:00:00', next_attempt = due, last_run = "
            "time_started, refusal = 'the panel says no' WHERE id = 5;"
            "UPDATE job SET failures = 2, due = time_started, expires = '" +
            InDays(1) +
            "' WHERE id = 6;"
            "UPDATE job SET failed = 1, failures = 3, due = '2997-01-01 10:20:30' WHERE id = 7;"
            "INSERT INTO job_event (job, time, state, event, detail) VALUES"
            " (7, '2026-01-01 00:00:00', 'failed', 'challenge_fail', '<p><b>Return code:</b> 403</p>'),"
            " (7, '2026-01-01 00:00:01', 'processing', 'authorization_try', '')");
    }
};

}  // namespace zelvek::testing
