// Notifications for people.
#include "zelvek/store/problems.h"

#include "engine.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

using problems::Problem;
using problems::State;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class StoredProblems : public StoreTest {
protected:
    void Raise(const Problem& problem) {
        Do([&](Transaction& transaction) { problems::Raise(transaction, problem); });
    }

    void AddOf(const std::string& id, const std::string& time) {
        Problem problem{id, "n", "error", "root", time, {{"a", "1"}, {"b", "2"}}};
        problem.about = id;
        Raise(problem);
    }

    /// One of a run of the job of anna's shop, for this owner.
    static Problem OfShop(const std::string& id, const std::string& owner = "root") {
        Problem problem{id, "ambrin_failed", "error", owner, "t" + id, {{"error", "e" + id}}};
        problem.user = "anna";
        problem.about = "shop";
        return problem;
    }

    std::vector<Problem> List(long long after = 0, int limit = 100, State state = State::kAny) {
        Transaction transaction(store());
        return problems::List(transaction, state, after, limit);
    }

    std::vector<std::string> IdsIn(State state) {
        std::vector<std::string> ids;
        for (const Problem& problem : List(0, 100, state)) ids.push_back(problem.id);
        return ids;
    }

    void Resolve(const std::string& user, const std::string& folder) {
        Do([&](Transaction& transaction) { problems::ResolveOfCertificate(transaction, user, folder); });
    }

    std::vector<std::string> Ids(long long after = 0, int limit = 100) {
        std::vector<std::string> ids;
        for (const Problem& problem : List(after, limit)) ids.push_back(problem.id);
        return ids;
    }

    long long RemoveOlder(const std::string& time, long long most, int limit) {
        return Do(
            [&](Transaction& transaction) { return problems::RemoveOlder(transaction, time, most, limit); });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredProblems, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: Notifications about one user's certificates come in their order, a page at a time, and none
// about
//   nobody's or another user's
TEST_P(StoredProblems, OfAUserAreAboutTheirCertificates) {
    Problem of_bob = OfShop("2");
    of_bob.user = "bob";
    for (const Problem& problem : {OfShop("1"), of_bob, OfShop("3", "anna")}) Raise(problem);
    AddOf("4", "t4");
    Resolve("bob", "shop");
    const auto ids = [&](const std::string& user, State state, long long after = 0, int limit = 10) {
        Transaction transaction(store());
        std::vector<std::string> found;
        for (const Problem& problem : problems::ListOfUser(transaction, user, state, after, limit))
            found.push_back(problem.id);
        return found;
    };
    using Found = std::vector<std::string>;
    EXPECT_EQ(ids("anna", State::kOpen), (Found{"1", "3"}));
    EXPECT_EQ(ids("anna", State::kAny, 0, 1), Found{"1"});
    EXPECT_EQ(ids("anna", State::kAny, List().front().number), Found{"3"});
    EXPECT_EQ(ids("bob", State::kOpen), Found{});
    EXPECT_EQ(ids("carla", State::kAny), Found{});
}

// Behaviour: Notifications come in the order in which they came, with their parameters by name, after a
//   restart too
TEST_P(StoredProblems, ComeInTheirOrderWithTheirParameters) {
    Raise(
        {"7", "ambrin_pause", "warning", "anna", "2026-01-02 00:00:00", {{"ns", "ns1"}, {"domain", "shop"}}});
    Raise({"3", "ambrin_success", "info", "root", "2026-01-01 00:00:00", {}});
    Reopen();
    const auto all = List();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].id, "7");
    EXPECT_EQ(all[0].name, "ambrin_pause");
    EXPECT_EQ(all[0].level, "warning");
    EXPECT_EQ(all[0].owner, "anna");
    EXPECT_EQ(all[0].time, "2026-01-02 00:00:00");
    EXPECT_THAT(all[0].parameters, ElementsAre(Pair("domain", "shop"), Pair("ns", "ns1")));
    EXPECT_EQ(all[1].id, "3");
    EXPECT_THAT(all[1].parameters, IsEmpty());
    EXPECT_LT(all[0].number, all[1].number);
}

// Behaviour: Notifications are listed after the number asked for, as many as asked for
TEST_P(StoredProblems, AreListedInPages) {
    for (const std::string id : {"a", "b", "c", "d"}) AddOf(id, "t");
    const auto all = List();
    EXPECT_THAT(Ids(all[0].number, 2), ElementsAre("b", "c"));
    EXPECT_THAT(Ids(all[2].number), ElementsAre("d"));
    EXPECT_THAT(Ids(all[3].number), IsEmpty());
}

// Behaviour: A notification that comes again changes nothing
TEST_P(StoredProblems, AgainChangeNothing) {
    AddOf("7", "t");
    Raise({"7", "other", "info", "anna", "u", {{"a", "changed"}, {"c", "3"}}});
    const auto all = List();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].name, "n");
    EXPECT_EQ(all[0].time, "t");
    EXPECT_THAT(all[0].parameters, ElementsAre(Pair("a", "1"), Pair("b", "2")));
    AddOf("8", "t");
    EXPECT_THAT(Ids(), ElementsAre("7", "8"));
}

// Behaviour: A trouble is raised once for its cause: what comes again, with another id and from another run,
//   brings its newest time, level and parameters into the open one and counts it
TEST_P(StoredProblems, AreRaisedOnceForTheirCause) {
    Raise(OfShop("1"));
    Raise(OfShop("2"));
    Raise(OfShop("2"));  // its query again
    const auto all = List();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].id, "2");
    EXPECT_EQ(all[0].since, "t1");
    EXPECT_EQ(all[0].time, "t2");
    EXPECT_EQ(all[0].times, 2);
    EXPECT_EQ(all[0].state, "raised");
    EXPECT_EQ(all[0].user, "anna");
    EXPECT_EQ(all[0].about, "shop");
    EXPECT_THAT(all[0].parameters, ElementsAre(Pair("error", "e2")));
}

// Behaviour: Another name, owner, user or certificate is another cause
TEST_P(StoredProblems, OfAnotherCauseAreOthers) {
    Raise(OfShop("1"));
    Raise(OfShop("2", "anna"));
    for (const auto member : {&Problem::name, &Problem::user, &Problem::about}) {
        Problem other = OfShop("3" + OfShop("").*member);
        other.*member = "other";
        Raise(other);
    }
    EXPECT_EQ(List().size(), 5u);
}

// Behaviour: A trouble that somebody has seen stays seen when it comes again, unless it is to be told again
TEST_P(StoredProblems, ThatAreSeenStaySeenWhenTheyComeAgain) {
    Raise(OfShop("1"));
    const long long number = List()[0].number;
    const auto set_seen = [&](long long which) {
        return Do([&](Transaction& transaction) { return problems::SetSeen(transaction, which); });
    };
    EXPECT_TRUE(set_seen(number));
    EXPECT_FALSE(set_seen(number + 1));
    Raise(OfShop("2"));
    EXPECT_THAT(IdsIn(State::kSeen), ElementsAre("2"));
    EXPECT_THAT(IdsIn(State::kOpen), ElementsAre("2"));
    EXPECT_THAT(IdsIn(State::kRaised), IsEmpty());
    Problem again = OfShop("3");
    again.tell_again = true;
    Raise(again);
    EXPECT_THAT(IdsIn(State::kRaised), ElementsAre("3"));
    EXPECT_EQ(Do([](Transaction& transaction) { return problems::SetSomeSeen(transaction, 10); }), 1);
    EXPECT_EQ(Do([](Transaction& transaction) { return problems::SetSomeSeen(transaction, 10); }), 0);
    EXPECT_THAT(IdsIn(State::kSeen), ElementsAre("3"));
    Resolve("anna", "shop");
    EXPECT_TRUE(set_seen(number)) << "it is there";
    EXPECT_THAT(IdsIn(State::kResolved), ElementsAre("3")) << "and stays over";
}

// Behaviour: What is about a certificate is over for everybody when its job is verified, and stays listed as
//   resolved; what comes afterwards is raised anew. Other certificates' troubles stay open
TEST_P(StoredProblems, OfACertificateAreOverWhenItsJobIsVerified) {
    Raise(OfShop("1"));
    Raise(OfShop("2", "anna"));
    Problem other = OfShop("3");
    other.user = "berta";
    Raise(other);
    Resolve("anna", "shop");
    Resolve("anna", "shop");
    EXPECT_THAT(IdsIn(State::kResolved), ElementsAre("1", "2"));
    EXPECT_THAT(IdsIn(State::kOpen), ElementsAre("3"));
    Raise(OfShop("4"));
    EXPECT_THAT(IdsIn(State::kResolved), ElementsAre("1", "2"));
    EXPECT_THAT(IdsIn(State::kRaised), ElementsAre("3", "4"));
}

// Behaviour: A trouble that ends otherwise than with its job's success ends by its name, user and certificate
TEST_P(StoredProblems, ThatEndOtherwiseEndByTheirName) {
    Problem reload = OfShop("1");
    reload.name = "web_server_reload";
    reload.until_verified = false;
    Raise(reload);
    Raise(OfShop("2"));
    Resolve("anna", "shop");
    EXPECT_THAT(IdsIn(State::kOpen), ElementsAre("1"));
    const auto resolve = [&](const std::string& name, const std::string& user, const std::string& about) {
        Do([&](Transaction& transaction) { problems::Resolve(transaction, name, user, about); });
    };
    resolve("other", "anna", "shop");
    resolve("web_server_reload", "berta", "shop");
    resolve("web_server_reload", "anna", "other");
    EXPECT_THAT(IdsIn(State::kOpen), ElementsAre("1"));
    resolve("web_server_reload", "anna", "shop");
    EXPECT_THAT(IdsIn(State::kOpen), IsEmpty());
}

// Behaviour: News are no troubles: each is one of its own, and none is open
TEST_P(StoredProblems, ThatAreNewsAreNeverOpen) {
    for (const std::string id : {"1", "2"}) {
        Problem news = OfShop(id);
        news.news = true;
        Raise(news);
        Raise(news);
    }
    EXPECT_THAT(IdsIn(State::kNews), ElementsAre("1", "2"));
    EXPECT_THAT(IdsIn(State::kOpen), IsEmpty());
    EXPECT_THAT(IdsIn(State::kAny), ElementsAre("1", "2"));
    EXPECT_EQ(List()[0].state, "news");
}

// Behaviour: A trouble that the service raises itself gets an id of its own
TEST_P(StoredProblems, WithoutAnIdGetOne) {
    Raise(OfShop(""));
    Raise(OfShop("", "anna"));
    ASSERT_EQ(List().size(), 2u);
    EXPECT_EQ(List()[0].id.size(), 16u);
    EXPECT_NE(List()[0].id, List()[1].id);
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredProblems, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        Problem problem{text, text, text, text, text, {{text, text}}};
        problem.user = problem.about = text;
        if (text.empty()) problem.id = "1";
        Raise(problem);
        const Problem kept = List().back();
        EXPECT_EQ(kept.id, problem.id);
        for (const auto& part : {kept.name, kept.level, kept.owner, kept.time, kept.user, kept.about})
            EXPECT_EQ(part, text);
        EXPECT_THAT(kept.parameters, ElementsAre(Pair(text, text)));
    }
}

// Behaviour: Old notifications are forgotten a few at a time, with their parameters; newer ones stay
TEST_P(StoredProblems, OfOldAreForgottenInSteps) {
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 100, 10), 0);
    for (int day = 1; day <= 6; ++day)
        AddOf(std::to_string(day), "2026-01-0" + std::to_string(day) + " 00:00:00");
    const std::string limit = "2026-01-05 00:00:00";
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 3);
    EXPECT_THAT(Ids(), ElementsAre("4", "5", "6"));
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 1);
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 0);
    EXPECT_THAT(Ids(), ElementsAre("5", "6"));
    EXPECT_EQ(Rows("problem_parameter"), 4);
}

// Behaviour: Old notifications are forgotten though one of a wrong clock, far ahead, stands before them
TEST_P(StoredProblems, OfOldAreForgottenBehindATimeFarAhead) {
    for (const std::string id : {"a", "b", "c"}) AddOf(id, "2999-01-01 00:00:00");
    AddOf("old", "2026-01-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-02-01 00:00:00", 100, 2), 1);
    EXPECT_THAT(Ids(), ElementsAre("a", "b", "c"));
}

// Behaviour: No more are forgotten at once than asked for, be they old or too many
TEST_P(StoredProblems, AreForgottenAtMostAsManyAsAskedFor) {
    AddOf("old", "2025-01-01 00:00:00");
    for (const std::string id : {"a", "b", "c", "d"}) AddOf(id, "2026-02-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 1, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("b", "c", "d"));
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 1, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("d"));
}

// Behaviour: Of too many notifications the oldest are forgotten, a few at a time, however new they are
TEST_P(StoredProblems, OfTooManyTheOldestAreForgotten) {
    for (const std::string id : {"a", "b", "c", "d", "e"}) AddOf(id, "2026-01-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("c", "d", "e"));
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 1);
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 0);
    EXPECT_THAT(Ids(), ElementsAre("d", "e"));
    EXPECT_EQ(Rows("problem_parameter"), 4);
}

}  // namespace

}  // namespace zelvek::testing
