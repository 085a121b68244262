// Notifications of a job's runs: raised once for each cause, seen, and over when the certificate is there.
#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <json/json.h>

#include <memory>

#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Problem : public ServiceTest {
protected:
    Problem() { Start(); }

    /// As a run of the job does that this process has read last.
    static void Tell(const std::string& name, const std::string& id, const std::string& owner = "root",
                     const std::string& error = "e") {
        Ask("func=problems.register&sok=ok&level=error&param_name=shop.example",
            {{"name", name}, {"id", id}, {"owner", owner}, {"param_error", error}});
    }

    /// "NAME OWNER STATE TIMES" of each.
    static std::vector<std::string> Listed(const std::string& state) {
        std::vector<std::string> listed;
        const auto answer = Ask("func=zelvek.problem.list", {{"state", state}});
        for (const auto& node : answer.xml().GetNodes("/doc/elem")) {
            listed.push_back(node.Value("name") + " " + node.Value("owner") + " " + node.Value("state") +
                             " " + node.Value("times"));
        }
        return listed;
    }

    static std::string AddShop() {
        std::string id = AddJob({{"domain", "shop.example"}, {"user_name", "anna"}});
        ReadJob(id);
        return id;
    }
};

// Behaviours of: Notifications (problems.register)

// Behaviour: What a job's runs tell is raised once for each notification and owner, and is over for all of
// them
//   when a run writes the job back as verified; it stays listed as resolved
TEST_F(Problem, OfAJobIsOverWhenTheJobIsVerified) {
    const std::string id = AddShop();
    for (const std::string run : {"1", "2"}) {
        Tell("ambrin_failed_admin", "a" + run, "root", "error " + run);
        Tell("ambrin_failed_user", "u" + run, "anna", "error " + run);
        Write(id);
        ReadJob(id);
    }
    EXPECT_THAT(Listed(""),
                ElementsAre("ambrin_failed_admin root raised 2", "ambrin_failed_user anna raised 2"));
    const auto answer = Ask("func=zelvek.problem.list");
    EXPECT_EQ(answer.xml().GetNode("/doc/elem/parameter").Value("value"), "error 2");
    EXPECT_EQ(answer.xml().GetNode("/doc/elem").Value("user_name"), "anna") << "whoever is told";
    Write(id, {{"verified", "on"}});
    EXPECT_THAT(Listed("open"), IsEmpty());
    EXPECT_THAT(Listed("resolved"),
                ElementsAre("ambrin_failed_admin root resolved 2", "ambrin_failed_user anna resolved 2"));
}

// Behaviour: A success is news: told for each certificate that is installed, listed with the others, never
// open
TEST_F(Problem, OfASuccessIsNews) {
    const std::string id = AddShop();
    Tell("ambrin_success", "1");
    Tell("ambrin_success", "2");
    EXPECT_THAT(Listed("open"), IsEmpty());
    EXPECT_THAT(Listed("news"), ElementsAre("ambrin_success root news 1", "ambrin_success root news 1"));
    EXPECT_THAT(Listed("all"), Listed("news"));
}

// Behaviour: What was told about a job is over when the job is removed
TEST_F(Problem, OfARemovedJobIsOver) {
    const std::string id = AddShop();
    Tell("ambrin_failed_admin", "1");
    Write(id);
    Ask("func=zelvek.job.remove", {{"elid", id}});
    EXPECT_THAT(Listed("open"), IsEmpty());
    Tell("ambrin_failed_admin", "2");
    EXPECT_THAT(Listed("open"), ElementsAre("ambrin_failed_admin root raised 1")) << "a late run's";
}

// Behaviour: Who takes note of a notification, or of all, finds it among those that are seen; it stays open
TEST_F(Problem, IsSeenByHand) {
    AddShop();
    Tell("a", "1");
    Tell("b", "2");
    Tell("c", "3");
    EXPECT_EQ(Zelvek({"problem", "seen", "2"}).out, "1 notification seen\n");
    EXPECT_THAT(Listed("raised"), ElementsAre("a root raised 1", "c root raised 1"));
    EXPECT_EQ(Zelvek({"problem", "seen", "--all", "--json"}).out, "{\"count\":2}\n");
    EXPECT_EQ(Zelvek({"problem", "seen", "--all"}).out, "0 notifications seen\n");
    EXPECT_EQ(Listed("seen").size(), 3u);
    EXPECT_EQ(Listed("open").size(), 3u);
    EXPECT_NE(Zelvek({"problem", "list", "--state", "seen"}).out.find(" seen "), std::string::npos);
    EXPECT_EQ(Zelvek({"problem", "list", "--state", "raised", "--json"}).out, "[]\n");
    const Ended missed = Zelvek({"problem", "seen", "17"});
    EXPECT_EQ(missed.status, 1);
    EXPECT_EQ(missed.err, "zelvek: there is no notification 17\n");
    EXPECT_EQ(Zelvek({"problem", "seen"}).status, 1);
    EXPECT_EQ(Zelvek({"problem", "seen", "1", "--all"}).status, 1);
    EXPECT_EQ(ErrorOf("func=zelvek.problem.list&state=perhaps"), "value");
}

// Behaviour: Who clears a notification, or all, ends it; news too. What comes of its cause afterwards is
// raised anew
TEST_F(Problem, IsClearedByHand) {
    AddShop();
    Tell("a", "1");
    Tell("b", "2");
    Tell("ambrin_success", "3");
    EXPECT_EQ(Zelvek({"problem", "clear", "1"}).out, "1 notification cleared\n");
    EXPECT_THAT(Listed("open"), ElementsAre("b root raised 1"));
    EXPECT_THAT(Listed("resolved"), ElementsAre("a root resolved 1"));
    Tell("a", "4");
    EXPECT_THAT(Listed("open"), ElementsAre("b root raised 1", "a root raised 1"));
    EXPECT_EQ(Zelvek({"problem", "clear", "--all", "--json"}).out, "{\"count\":3}\n");
    EXPECT_EQ(Listed("open").size() + Listed("news").size(), 0u);
    EXPECT_EQ(Zelvek({"problem", "clear", "17"}).err, "zelvek: there is no notification 17\n");
}

// Behaviour: An order that was finalized and gave no certificate is told to the administrator once, until
//   the certificate is there; the next run is due about a day later, and one that asks for a time has it
TEST_F(Problem, OfACertificateThatWasNotFetchedIsToldOnce) {
    const std::string id = AddShop();
    const std::string proved = "2026-01-01 00:00:00,processing,challenge_success,;";
    const std::string refused =
        "2026-01-01 00:00:01,failed,cert_order_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> is "
        "processing</p>";
    const auto end = [&](const std::map<std::string, std::string>& entries) {
        ReadJob(id);
        Write(id, entries);
        return Ask("func=zelvek.job.show", {{"elid", id}});
    };
    const std::string waits = vek_date::DateTime().AddSeconds(300).AsDateTime();
    EXPECT_EQ(end({{"log", proved + refused}, {"next_attempt", waits}}).value("due"), waits);
    EXPECT_THAT(Listed("open"), IsEmpty());
    const std::string soonest = vek_date::DateTime().AddSeconds(20 * 3600).AsDateTime();
    for (int orders = 0; orders < 2; ++orders) {
        const auto shown = end({{"log", proved + refused}});
        EXPECT_GE(shown.value("due"), soonest);
        EXPECT_EQ(shown.value("failures"), std::to_string(orders + 1));
        EXPECT_THAT(Listed("open"),
                    ElementsAre("certificate_not_fetched root raised " + std::to_string(orders + 1)));
    }
    end({{"verified", "on"}});
    EXPECT_THAT(Listed("open"), IsEmpty());
}

// Behaviour: An account check that fails is told, until one succeeds; that the panel has another account
// after it is told
//   with both, and both name the option that leaves such checks out
TEST_F(Problem, OfAccountChecksIsTold) {
    const std::string id = AddShop();
    Write(id, {{"kid", "https://ca.example/1"}, {"acmekey", "K"}, {"update_default_account", "on"}});
    EXPECT_THAT(Listed("all"), IsEmpty()) << "the first account";
    ReadJob(id);
    Write(id, {{"kid", "https://ca.example/1"}, {"acmekey", "K"}, {"account_check_count", "1"}});
    EXPECT_THAT(Listed("open"), ElementsAre("account_check_failed root raised 1"));
    ReadJob(id);
    Write(id, {{"kid", "https://ca.example/2"}, {"acmekey", "L"}, {"update_default_account", "on"}});
    EXPECT_THAT(Listed("open"), ElementsAre("account_replaced root raised 1"));
    const auto answer = Ask("func=zelvek.problem.list&state=open");
    std::vector<std::string> values;
    for (const auto& node : answer.xml().GetNodes("/doc/elem/parameter"))
        values.push_back(node.Value("value"));
    EXPECT_THAT(values, ::testing::UnorderedElementsAre("shop.example", "https://ca.example/1",
                                                        "https://ca.example/2"));
}

// Behaviour: The service itself tells of a certificate that comes to its end without a renewal, to everybody
//   concerned, until a run writes its job back as verified
TEST_F(Problem, TellsOfACertificateThatComesToItsEnd) {
    const std::string id = AddJob({{"domain", "shop.example"}, {"user_name", "anna"}, {"res_name", "team"}});
    ReadJob(id);
    const vek_date::DateTime now;
    const auto days = [&](int count) { return vek_date::DateTime(now).AddDays(count).AsDateTime(); };
    Stop();
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE)
        .exec("UPDATE job SET notice_due = '" + days(-1) + "', renew = '" + days(-25) + "', expires = '" +
              days(5) + "'");
    Start();
    const auto told = [](const std::string& state) {
        const std::string rest = " " + state + " 1";
        return std::vector<std::string>{"certificate_ending anna" + rest, "certificate_ending root" + rest,
                                        "certificate_ending team" + rest};
    };
    EXPECT_TRUE(Eventually([&] { return Listed("open") == told("raised"); }));
    EXPECT_EQ(Ask("func=zelvek.problem.list").xml().GetNode("/doc/elem").Value("level"), "warning");
    ReadJob(id);
    Write(id, {{"verified", "on"}});
    EXPECT_THAT(Listed("open"), IsEmpty());
    EXPECT_EQ(Listed("resolved"), told("resolved"));
}

}  // namespace

}  // namespace zelvek::testing
