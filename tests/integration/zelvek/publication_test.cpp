// Answer files, and how long what a job publishes stays.
#include <SQLiteCpp/Database.h>

#include "service.h"

namespace zelvek::testing {

namespace {

class Publication : public ServiceTest {
protected:
    Publication() { Start(); }

    static void Challenge(const std::string& action, const std::string& token,
                          const std::string& content = "c") {
        vek_client::Local("zelvek", "test")
            .Query("func=ambrin_challenge&action=?&user_name=?&file_name=?&content=?", action, "anna", token,
                   content);
    }
};

// Behaviours of: What runs publish, and what dead ones leave

// Behaviour: An answer file is named by its token and ...
TEST_F(Publication, AnAnswerIsWrittenAndRemoved) {
    Challenge("create", "Token-_9", "a.b&c=d?\n");
    EXPECT_EQ(ReadFile(Path("answers") / "Token-_9"), "a.b&c=d?\n");
    Challenge("create", "Token-_9", "other");
    EXPECT_EQ(ReadFile(Path("answers") / "Token-_9"), "other");
    Challenge("delete", "Token-_9");
    EXPECT_FALSE(HasAnswer("Token-_9"));
    Challenge("delete", "Token-_9");
}

// Behaviour: A token is of letters, digits, "-" and "_" ...
TEST_F(Publication, WhatIsNoTokenUserOrActionIsRefused) {
    for (const std::string token : {"", "..", "../x", "a/b", "a.b", "a b", "ü"}) {
        EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=create&user_name=anna", {{"file_name", token}}),
                  "value")
            << token;
        EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=delete&user_name=anna", {{"file_name", token}}),
                  "value")
            << token;
    }
    EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=create&user_name=..&file_name=t&content=c"), "value");
    EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=update&user_name=anna&file_name=t&content=c"), "value");
    EXPECT_EQ(ErrorOf("func=ambrin_challenge&user_name=anna&file_name=t&content=c"), "value");
    EXPECT_TRUE(std::filesystem::is_empty(Path("answers")));
}

// Behaviour: A file that cannot be written is an error ...
TEST_F(Publication, WhatCannotBeWrittenIsAnErrorAndLeavesNothingRecorded) {
    std::filesystem::create_directories(Path("answers") / "t" / "in-the-way");
    EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=create&user_name=anna&file_name=t&content=c"), "io");
    Stop();
    EXPECT_EQ(ReadFile(Path("command-1.err")).find("removing"), std::string::npos);
}

// Behaviour: A write-back with challenges keeps what the job has published for later runs
TEST_F(Publication, AJobWithChallengesKeepsWhatItPublished) {
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Challenge("create", "kept");
                  Write(id, {{"challenges", "pending"}});
              }),
              0);
    Ask("func=zelvek.job.show&elid=" + id);
    ReadJob(id);  // looks for what dead runs left
    EXPECT_TRUE(HasAnswer("kept"));
}

// Behaviour: A killed later run loses nothing that was kept, only what it has published itself
TEST_F(Publication, AKilledLaterRunLosesNothingThatWasKept) {
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Challenge("create", "kept");
                  Write(id, {{"challenges", "pending"}});
              }),
              0);
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Challenge("create", "kept", "anew");
                  Challenge("create", "later");
              }),
              0);
    EXPECT_TRUE(Eventually([&] { return !HasAnswer("later"); }));
    EXPECT_TRUE(HasAnswer("kept"));
    ReadJob(id);
    Write(id);
    EXPECT_FALSE(HasAnswer("kept"));
}

// Behaviour: A write-back without challenges, or of a failed or verified job, removes it
TEST_F(Publication, AJobWithoutChallengesKeepsNothing) {
    const std::string id = AddJob();
    for (const std::map<std::string, std::string>& end :
         {std::map<std::string, std::string>{{"challenges", ""}},
          {{"challenges", "pending"}, {"failed", "on"}},
          {{"challenges", "pending"}, {"verified", "on"}}}) {
        ReadJob(id);
        Challenge("create", "left");
        Write(id, end);
        EXPECT_FALSE(HasAnswer("left"));
    }
}

// Behaviour: A stale write-back removes nothing
TEST_F(Publication, AStaleWriteBackRemovesNothing) {
    const std::string id = AddJob();
    ReadJob(id);
    Challenge("create", "mine");
    EXPECT_EQ(InChild([&] { Write(id); }), 99);
    EXPECT_TRUE(HasAnswer("mine"));
}

// Behaviour: One job's end leaves another's publications alone, shared ones too
TEST_F(Publication, OneJobsEndLeavesTheOthersAnswersAlone) {
    const std::string first = AddJob();
    const std::string second = AddJob({{"domain", "blog.example"}});
    ReadJob(first);
    Challenge("create", "first");
    Challenge("create", "both");
    Write(first, {{"challenges", "pending"}});
    ReadJob(second);
    Challenge("create", "second");
    Challenge("create", "both");
    Challenge("delete", "both");
    Write(second);
    EXPECT_FALSE(HasAnswer("second"));
    EXPECT_TRUE(HasAnswer("first"));
    EXPECT_TRUE(HasAnswer("both"));
    ReadJob(first);
    Write(first);
    EXPECT_FALSE(HasAnswer("first"));
    EXPECT_FALSE(HasAnswer("both"));
}

// Behaviour: A removed job takes its publications along
TEST_F(Publication, ARemovedJobTakesItsAnswersAlong) {
    const std::string id = AddJob();
    ReadJob(id);
    Challenge("create", "kept");
    Write(id, {{"challenges", "pending"}});
    Ask("func=zelvek.job.remove&elid=" + id);
    EXPECT_FALSE(HasAnswer("kept"));
}

// Behaviour: The first check of new records waits until name servers remember no longer that they were not
// there,
//   and the job says so
TEST_F(Publication, TheFirstCheckOfNewRecordsWaitsUntilAllCanSeeThem) {
    Ask("func=zelvek.domain.add&name=zone.example&user_name=anna");
    const std::string id = AddJob({{"check_type", "dns"}});
    ReadJob(id);
    Ask("func=domain.record.edit&sok=ok&su=anna&plid=zone.example&rtype=txt&name=_acme-challenge.zone."
        "example.",
        {{"value", "v"}});
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
        .exec("UPDATE publication SET seen_by_all = '2999-01-01 00:00:00'");
    Write(id, {{"challenges", "[{}]"}});
    const auto shown = Ask("func=zelvek.job.show&elid=" + id);
    EXPECT_EQ(shown.value("due"), "2999-01-01 00:00:00");
    EXPECT_NE(shown.value("postponed"), "");
    ReadJob(id);
    Write(id);
    EXPECT_LT(Ask("func=zelvek.job.show&elid=" + id).value("due"), "2999-01-01 00:00:00");
}

}  // namespace

}  // namespace zelvek::testing
