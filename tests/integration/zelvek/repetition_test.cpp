// A query that comes again because its answer was lost.
#include <SQLiteCpp/Database.h>

#include <future>

#include "service.h"

namespace zelvek::testing {

namespace {

const std::string kIdentity(32, 'a');
const std::string kOther(32, 'b');
const std::string kAdd = "func=zelvek.job.add&user_name=anna&foreign_names=on&domain=";
const std::string kDone = "<?xml version=\"1.0\"?><doc/>";

class Repetition : public ServiceTest {
protected:
    Repetition() { Start(); }

    /// One delivery of a query; returns the body of the answer.
    std::string Deliver(const std::string& identity, const std::string& text,
                        const std::map<std::string, std::string>& entries = {}) const {
        const std::string answer =
            Raw(Request("POST /", vek_client::Bind(text, entries), "X-Vek-Query: " + identity + "\r\n"));
        return answer.substr(answer.find("\r\n\r\n") + 4);
    }

    std::string DeliverRecord(const std::string& identity, const std::string& id,
                              const std::map<std::string, std::string>& entries = {}) const {
        return Deliver(identity, "func=ambrin.data.edit&sok=ok", WriteBack(id, entries));
    }

    static std::size_t Events(const std::string& id) {
        return Ask("func=zelvek.job.show&elid=" + id).xml().GetNodes("/doc/event").size();
    }

    static std::size_t Jobs() { return Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").size(); }

    SQLite::Database OpenDatabase() const { return {Database().string(), SQLite::OPEN_READWRITE, 10'000}; }
};

// Behaviours of: Socket and answers

// Behaviour: A write-back that comes again is answered as before and changes nothing, though the record has
//   another holder by then
TEST_F(Repetition, OfAWriteBackChangesNothing) {
    const std::string id = AddJob();
    ReadJob(id);
    const std::map<std::string, std::string> entries{{"kid", "k"}, {"log", "2026-01-01 00:00:00,a,b,c"}};
    EXPECT_EQ(DeliverRecord(kIdentity, id, entries), kDone);
    EXPECT_EQ(DeliverRecord(kIdentity, id, entries), kDone);
    EXPECT_EQ(Events(id), 1U);
    EXPECT_EQ(InChild([&] {
                  ReadJob(id);
                  Write(id, {{"kid", "child's"}});
              }),
              0);
    EXPECT_EQ(DeliverRecord(kIdentity, id, entries), kDone);
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "child's");
    EXPECT_NE(DeliverRecord(kOther, id, entries).find("type=\"stale\""), std::string::npos);
}

// Behaviour: A write-back that comes again is answered ...
TEST_F(Repetition, OfAWriteBackIsKnownAfterARestart) {
    const std::string id = AddJob();
    ReadJob(id);
    DeliverRecord(kIdentity, id, {{"log", "2026-01-01 00:00:00,a,b,c"}});
    Kill();
    Start();
    EXPECT_EQ(DeliverRecord(kIdentity, id, {{"log", "2026-01-01 00:00:00,a,b,c"}}), kDone);
    EXPECT_EQ(Events(id), 1U);
}

// Behaviour: A query that was refused has changed nothing, so that it is carried out when it comes again
TEST_F(Repetition, OfARefusedQueryIsCarriedOut) {
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_NE(DeliverRecord(kIdentity, id, {{"verified", "perhaps"}}).find("type=\"value\""),
              std::string::npos);
    EXPECT_EQ(DeliverRecord(kIdentity, id, {{"kid", "k"}}), kDone);
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "k");
}

// Behaviour: Adding, claiming and removing a job, adding and removing a domain are done once for one query,
//   however often it comes
TEST_F(Repetition, OfAnOperatorsQueryChangesNothing) {
    const std::string added = Deliver(kIdentity, kAdd + "shop.example");
    EXPECT_NE(added.find("<id>1</id>"), std::string::npos) << added;
    EXPECT_EQ(Deliver(kIdentity, kAdd + "shop.example"), added);
    EXPECT_EQ(Jobs(), 1U);
    EXPECT_NE(Deliver(kOther, kAdd + "blog.example").find("<id>2</id>"), std::string::npos);
    EXPECT_EQ(Jobs(), 2U);

    int number = 0;
    for (const std::string query : {"func=zelvek.job.claim&elid=1", "func=zelvek.job.remove&elid=2",
                                    "func=zelvek.domain.add&name=other.example&user_name=anna",
                                    "func=zelvek.domain.remove&name=other.example"}) {
        const std::string identity(32, static_cast<char>('0' + ++number));
        EXPECT_EQ(Deliver(identity, query), kDone) << query;
        EXPECT_EQ(Deliver(identity, query), kDone) << query;
        EXPECT_NE(Deliver(std::string(32, 'c'), query).find("<error "), std::string::npos) << query;
    }
}

// Behaviour: Editing a job is done once for one query, however often it comes
TEST_F(Repetition, OfAnEditChangesNothing) {
    const std::string id = AddJob();
    const std::string edit = "func=zelvek.job.edit&check_type=dns&elid=" + id;
    const auto events = [&] {
        return Ask("func=zelvek.job.show&elid=" + id).xml().GetNodes("/doc/event").size();
    };
    EXPECT_EQ(Deliver(kIdentity, edit), kDone);
    EXPECT_EQ(Deliver(kIdentity, edit), kDone);
    EXPECT_EQ(events(), 1U);
    EXPECT_EQ(Deliver(kOther, edit), kDone);
    EXPECT_EQ(events(), 2U);
}

// Behaviour: What the service cannot do because the database is locked is answered with status 503 and
// "later",
//   so that the caller tries again; nothing has changed
TEST_F(Repetition, IsAskedForWhereTheDatabaseIsLocked) {
    const std::string id = AddJob();
    ReadJob(id);
    const std::string write = vek_client::Bind("func=ambrin.data.edit&sok=ok", WriteBack(id, {{"kid", "k"}}));
    auto database = OpenDatabase();
    database.exec("BEGIN IMMEDIATE");
    const std::string answer = Raw(Request("POST /", write));
    database.exec("ROLLBACK");
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 503 ")) << answer;
    EXPECT_NE(answer.find("<error type=\"later\""), std::string::npos) << answer;
    EXPECT_NE(answer.find("<msg>the database is locked by another program</msg>"), std::string::npos)
        << answer;
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "");
    EXPECT_EQ(Raw(Request("POST /", write)).find("503"), std::string::npos);
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "k");
}

// Behaviour: A write-back whose service is killed and away for longer than other queries wait is stored once,
// by
//   the service that comes back
TEST_F(Repetition, OfAWriteBackReachesTheServiceThatComesBack) {
    const std::string id = AddJob();
    ReadJob(id);
    Kill();
    auto written = std::async(std::launch::async, [&] { Write(id, {{"log", "2026-01-01 00:00:00,a,b,c"}}); });
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "connect") << "other queries have given up by now";
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "connect");
    Start();
    EXPECT_NO_THROW(written.get());
    EXPECT_EQ(Events(id), 1U);
}

// Behaviour: An identity has 32 hexadecimal digits, any other is refused; a query may come without one
TEST_F(Repetition, WantsAnIdentityOfItsForm) {
    const std::string query = kAdd + "shop.example";
    for (const std::string& wrong : {std::string(31, 'a'), std::string(33, 'a'), std::string(32, 'A'),
                                     std::string(32, 'g'), std::string("'; DELETE FROM job; --")}) {
        EXPECT_TRUE(
            Raw(Request("POST /", query, "X-Vek-Query: " + wrong + "\r\n")).starts_with("HTTP/1.1 400 "))
            << wrong;
    }
    EXPECT_EQ(Jobs(), 0U);
    Raw(Request("POST /", query));
    EXPECT_NE(Raw(Request("POST /", query)).find("type=\"exists\""), std::string::npos);
    Raw(Request("POST /", kAdd + "blog.example"));
    EXPECT_EQ(Jobs(), 2U);
}

// Behaviour: What was answered is forgotten after an hour
TEST_F(Repetition, IsNotKnownAfterAnHour) {
    const std::string first = Deliver(kIdentity, kAdd + "shop.example");
    const std::string second = Deliver(kOther, kAdd + "blog.example");
    auto database = OpenDatabase();
    database.exec("UPDATE answered_query SET time = datetime('now', '-3610 seconds') WHERE identity = '" +
                  kIdentity + "'");
    database.exec("UPDATE answered_query SET time = datetime('now', '-3000 seconds') WHERE identity = '" +
                  kOther + "'");
    EXPECT_TRUE(
        Eventually([&] { return database.execAndGet("SELECT count(*) FROM answered_query").getInt() == 1; }));
    EXPECT_EQ(Deliver(kOther, kAdd + "blog.example"), second);
    EXPECT_NE(Deliver(kIdentity, kAdd + "shop.example"), first) << "it is there already";
}

}  // namespace

}  // namespace zelvek::testing
