// What a killed run, or a killed service, leaves behind is taken back.
#include <SQLiteCpp/Database.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "service.h"

namespace zelvek::testing {

namespace {

class DeadRun : public ServiceTest {
protected:
    static void Publish(const std::string& token) {
        Ask("func=ambrin_challenge&action=create&user_name=anna&content=c&file_name=" + token);
    }

    static void AddRecord(const std::string& value) {
        Ask("sok=ok&rtype=txt&func=domain.record.edit", {{"su", "anna"},
                                                         {"plid", "shop.example"},
                                                         {"name", "_acme-challenge.shop.example."},
                                                         {"value", value}});
    }

    static void AddDomain() { Ask("func=zelvek.domain.add&name=shop.example&user_name=anna"); }

    static std::string Processing(const std::string& id) {
        return Ask("func=zelvek.job.show&elid=" + id).value("processing");
    }

    /// Makes the records' folder unusable for anybody, root included, and usable again.
    void BreakRecords() const {
        std::filesystem::rename(Path("records"), Path("records.away"));
        std::filesystem::create_directory(Path("records"));
    }
    void MendRecords() const {
        std::filesystem::remove(Path("records"));
        std::filesystem::rename(Path("records.away"), Path("records"));
    }
};

// Behaviours of: What runs publish, and what dead ones leave

// Behaviour: What a dead run has published is removed, and its job is free again
TEST_F(DeadRun, ItsPublicationsAreRemovedAndItsJobIsFree) {
    Start();
    AddDomain();
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Publish("left");
                  AddRecord("left");
                  ::raise(SIGKILL);
              }),
              128 + SIGKILL);
    EXPECT_TRUE(Eventually([&] { return !HasAnswer("left") && Records().empty(); }));
    EXPECT_EQ(Processing(id), "off");
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + id), "");
}

// Behaviour: What a dead run has published is removed ...
TEST_F(DeadRun, TheNextReaderFindsItsPublicationsGone) {
    Start({{"--sweep-interval", "86400"}});
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Publish("left");
              }),
              0);
    EXPECT_TRUE(HasAnswer("left"));
    ReadJob(id);
    EXPECT_FALSE(HasAnswer("left"));
}

// Behaviour: A living process keeps what it has published anew
TEST_F(DeadRun, ALivingProcessKeepsWhatItPublishesAnew) {
    Start();
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Publish("shared");
              }),
              0);
    ReadJob(id);
    Publish("shared");
    // A sweep that removes something else proves that one has passed.
    ASSERT_EQ(InChild([] { Publish("other"); }), 0);
    EXPECT_TRUE(Eventually([&] { return !HasAnswer("other"); }));
    EXPECT_TRUE(HasAnswer("shared"));
}

// Behaviour: A record that exists passes to its newest publisher; one of somebody else stays
TEST_F(DeadRun, ARecordThatExistsPassesToTheNewestPublisher) {
    Start();
    AddDomain();
    const std::string id = AddJob();
    const std::string line = "shop.example _acme-challenge.shop.example v\n";
    ReadJob(id);
    AddRecord("v");
    Write(id, {{"challenges", "pending"}});
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  if (ErrorOf("sok=ok&rtype=txt&func=domain.record.edit",
                              {{"su", "anna"}, {"name", "_acme-challenge.shop.example"}, {"value", "v"}}) !=
                      "exists") {
                      ::_exit(1);
                  }
                  Write(id, {{"challenges", "pending"}});
              }),
              0);
    EXPECT_EQ(Records(), line);
    ReadJob(id);
    Write(id);
    EXPECT_EQ(Records(), "");
}

// Behaviour: A TXT record that two jobs share is removed with the last of them
TEST_F(DeadRun, ARecordThatTwoJobsShareGoesWithTheLast) {
    Start();
    AddDomain();
    const std::string first = AddJob();
    const std::string second = AddJob({{"certname", "second"}});
    const auto withdraw = [] {
        return ErrorOf("sok=ok&rtype=txt&func=domain.record.delete",
                       {{"su", "anna"}, {"elid", "_acme-challenge.shop.example. TXT  v"}});
    };
    ReadJob(first);
    AddRecord("v");
    Write(first, {{"challenges", "pending"}});
    ReadJob(second);
    EXPECT_THROW(AddRecord("v"), vek_err::Error) << "it exists";
    EXPECT_EQ(withdraw(), "");
    Write(second);
    EXPECT_EQ(Records(), "shop.example _acme-challenge.shop.example v\n") << "the first job still needs it";
    ReadJob(first);
    EXPECT_EQ(withdraw(), "");
    Write(first);
    EXPECT_EQ(Records(), "");
}

// Behaviour: What a run withdraws goes with its write-back, and stays when the run dies before it
TEST_F(DeadRun, WhatItHasWithdrawnStays) {
    Start();
    AddDomain();
    const std::string id = AddJob();
    const std::string line = "shop.example _acme-challenge.shop.example v\n";
    const auto withdraw = [] {
        Ask("sok=ok&rtype=txt&func=domain.record.delete",
            {{"su", "anna"}, {"elid", "_acme-challenge.shop.example. TXT  v"}});
        Ask("func=ambrin_challenge&action=delete&user_name=anna&file_name=token");
    };
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  AddRecord("v");
                  PublishAnswer();
                  Write(id, {{"challenges", "pending"}});
              }),
              0);
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  withdraw();
              }),
              0);
    EXPECT_TRUE(Eventually([&] { return Processing(id) == "off"; }));
    EXPECT_EQ(Records(), line);
    EXPECT_TRUE(HasAnswer("token"));

    ReadJob(id);
    withdraw();
    EXPECT_EQ(Records(), line);
    Write(id, {{"challenges", "pending"}});
    EXPECT_EQ(Records(), "") << "withdrawn, and written back";
    EXPECT_FALSE(HasAnswer("token"));
}

// Behaviour: Challenges for which nothing was ever published are dropped at the write-back, so that the next
// run
//   begins a new order
TEST_F(DeadRun, ChallengesWithoutAnyPublicationAreDropped) {
    Start();
    AddDomain();
    const std::string id = AddJob();
    const auto challenges = [&] { return Ask("func=zelvek.job.show&elid=" + id).value("challenges"); };
    ReadJob(id);
    Write(id, {{"challenges", "pending"}});
    EXPECT_EQ(challenges(), "");
    ReadJob(id);
    AddRecord("v");
    Write(id, {{"challenges", "pending"}});
    EXPECT_EQ(challenges(), "pending");
    ReadJob(id);
    Write(id, {{"challenges", "pending"}});
    EXPECT_EQ(challenges(), "pending") << "a later run publishes nothing itself";
}

// Behaviour: A record that exists passes to its newest ...
TEST_F(DeadRun, ARecordOfSomebodyElseStays) {
    Start();
    AddDomain();
    const std::string line = "shop.example _acme-challenge.shop.example theirs\n";
    std::ofstream(Path("records")) << line;
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_EQ(ErrorOf("sok=ok&rtype=txt&func=domain.record.edit",
                      {{"su", "anna"}, {"name", "_acme-challenge.shop.example"}, {"value", "theirs"}}),
              "exists");
    Write(id);
    EXPECT_EQ(Records(), line);
}

// Behaviour: Dead runs are cleared away at the service's start, living ones outlive its restart
TEST_F(DeadRun, IsClearedAwayAtTheServicesStart) {
    Start({{"--sweep-interval", "86400"}});
    const std::string id = AddJob();
    ASSERT_EQ(InChild([&] {
                  ReadJob(id);
                  Publish("left");
              }),
              0);
    Kill();
    EXPECT_TRUE(HasAnswer("left"));
    Start({{"--sweep-interval", "86400"}});
    EXPECT_TRUE(Eventually([&] { return !HasAnswer("left"); }));
    EXPECT_EQ(Processing(id), "off");
}

// Behaviour: Dead runs are cleared away at the service's ...
TEST_F(DeadRun, ALivingRunOutlivesARestartOfTheService) {
    Start();
    const std::string id = AddJob();
    ReadJob(id);
    Publish("mine");
    Kill();
    Start();
    EXPECT_EQ(Processing(id), "on");
    Write(id, {{"challenges", "pending"}, {"kid", "k"}});
    EXPECT_TRUE(HasAnswer("mine"));
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "k");
}

// Behaviour: A removal that fails is tried again
TEST_F(DeadRun, ARemovalThatFailsIsTriedAgain) {
    Start();
    AddDomain();
    const std::string id = AddJob();
    ReadJob(id);
    AddRecord("v");
    BreakRecords();
    Write(id);  // the record is stored all the same
    EXPECT_EQ(Processing(id), "off");
    MendRecords();
    EXPECT_TRUE(Eventually([&] { return Records().empty(); }));
}

// Behaviour: A removal that fails is tried again ...
TEST_F(DeadRun, AFailedDeletionOfNobodysRecordIsAnErrorAndTriedAgain) {
    Start();
    AddDomain();
    AddRecord("v");
    BreakRecords();
    EXPECT_EQ(
        ErrorOf("sok=ok&rtype=txt&func=domain.record.delete",
                {{"su", "anna"}, {"plid", "shop.example"}, {"elid", "_acme-challenge.shop.example. TXT  v"}}),
        "dns");
    MendRecords();
    EXPECT_TRUE(Eventually([&] { return Records().empty(); }));
}

// Behaviour: An item that cannot be removed keeps no other one
TEST_F(DeadRun, AnAnswerThatCannotBeRemovedKeepsNoOther) {
    Start();
    const std::string id = AddJob();
    ReadJob(id);
    for (const char* token : {"a", "b", "c"}) PublishAnswer(token);
    std::filesystem::remove(Path("answers") / "a");
    std::filesystem::create_directories(Path("answers") / "a" / "in-the-way");
    Write(id);
    EXPECT_FALSE(HasAnswer("b"));
    EXPECT_FALSE(HasAnswer("c"));
}

// Behaviour: A CSR that a dead run has left is given to nobody, and removed by the next run
TEST_F(DeadRun, ItsRequestsAreNobodysAndGoWithTheNextRun) {
    Start();
    const std::string id = AddJob({{"csr_key_type", "ec"}});
    const auto make = [] {
        Ask("func=sslcert.csr.edit&domain=shop.example&su=anna&certname_ascii=shop.example&key_type=ec");
    };
    const auto kept = [this] {
        return SQLite::Database(Database().string()).execAndGet("SELECT count(*) FROM csr").getInt();
    };
    ASSERT_EQ(InChild(make), 0);
    EXPECT_EQ(kept(), 1);
    EXPECT_EQ(ErrorOf("func=sslcert.csr.edit&out=xml&elid=shop.example"), "missed");
    make();
    EXPECT_EQ(kept(), 1) << "the dead one's is gone";
    EXPECT_NE(Ask("func=sslcert.csr.edit&out=xml&elid=shop.example").value("csr_pk"), "");
    Ask("func=sslcert.csr.delete&elid=shop.example");
    EXPECT_EQ(kept(), 0);
}

}  // namespace

}  // namespace zelvek::testing
