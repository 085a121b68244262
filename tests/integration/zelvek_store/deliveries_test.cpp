// Notifications on their way to people.
#include "zelvek/store/deliveries.h"

#include "engine.h"
#include "zelvek/store/problems.h"

namespace zelvek::testing {

namespace {

using deliveries::Entry;
using deliveries::Recipient;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Deliveries : public StoreTest {
protected:
    /// A trouble of this certificate; returns its number.
    long long Raise(const std::string& about, bool again = false) {
        Do([&](Transaction& transaction) {
            problems::Raise(transaction, {.name = "n",
                                          .level = "error",
                                          .owner = "root",
                                          .time = "t",
                                          .user = "anna",
                                          .about = about,
                                          .tell_again = again});
        });
        Transaction transaction(store());
        return problems::List(transaction, problems::State::kOpen, 0, 1000).back().number;
    }

    std::vector<Entry> Unrouted(const std::string& route = "") {
        Transaction transaction(store());
        return deliveries::Unrouted(transaction, route, 100);
    }

    void RouteAll(const std::vector<std::string>& recipients, const std::string& route = "") {
        for (const Entry& entry : Unrouted(route)) {
            Do([&](Transaction& transaction) { deliveries::Route(transaction, entry, recipients, "5"); });
        }
    }

    std::vector<Recipient> Due(const std::string& now) {
        Transaction transaction(store());
        return deliveries::Due(transaction, now, "9", 100);
    }

    std::vector<std::string> Names(const std::string& now) {
        std::vector<std::string> names;
        for (const Recipient& recipient : Due(now)) names.push_back(recipient.name);
        return names;
    }

    /// Begins the attempt of the one recipient that is due.
    Recipient Begin(const std::string& attempt, int most = 100) {
        Recipient recipient = Due("8").at(0);
        recipient.digest = Do([&](Transaction& transaction) {
            return deliveries::Begin(transaction, recipient, attempt, most);
        });
        return recipient;
    }

    std::vector<long long> ProblemsOf(const Recipient& recipient) {
        Transaction transaction(store());
        return deliveries::ProblemsOf(transaction, recipient.name, recipient.digest);
    }

    template <class Change>
    void End(const Change& change, const Recipient& recipient, const std::string& next) {
        Do([&](Transaction& transaction) { change(transaction, recipient, next); });
    }

    std::vector<std::string> GiveUpInterrupted() {
        return Do([](Transaction& transaction) { return deliveries::GiveUpInterrupted(transaction); });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Deliveries, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: What is raised waits to be told, once: what comes again waits again only where it is to be told
//   again, and not beside itself
TEST_P(Deliveries, WaitOnceForEachNotification) {
    const long long number = Raise("shop");
    ASSERT_THAT(Unrouted(), SizeIs(1));
    EXPECT_EQ(Unrouted()[0].problem, number);
    EXPECT_EQ(Unrouted()[0].owner, "root");
    Raise("shop");
    Raise("shop", true);
    EXPECT_THAT(Unrouted(), SizeIs(1));
    RouteAll({});
    EXPECT_THAT(Unrouted(), IsEmpty());
    Raise("shop");
    EXPECT_THAT(Unrouted(), IsEmpty());
    Raise("shop", true);
    EXPECT_THAT(Unrouted(), SizeIs(1));
}

// Behaviour: A trouble that is over before anybody was told is not told; one in a delivery under way stays in
// it
TEST_P(Deliveries, OfWhatIsOverAreForgotten) {
    Raise("a");
    RouteAll({"r"});
    const Recipient recipient = Begin("1");
    Raise("b");
    RouteAll({"r"});
    Raise("c");
    for (const std::string about : {"a", "b", "c"}) {
        Do([&](Transaction& transaction) { problems::ResolveOfCertificate(transaction, "anna", about); });
    }
    EXPECT_EQ(Rows("delivery"), 1);
    EXPECT_THAT(ProblemsOf(recipient), SizeIs(1));
}

// Behaviour: A digest is all that waits for a recipient when its delivery begins, up to a number; what comes
//   afterwards waits for the next one
TEST_P(Deliveries, OfADigestAreWhatWaitsAtItsBeginning) {
    const long long a = Raise("a");
    const long long b = Raise("b");
    const long long c = Raise("c");
    RouteAll({"r", "s"});
    EXPECT_THAT(Names("4"), IsEmpty());
    EXPECT_THAT(Names("5"), ElementsAre("r", "s"));
    const Recipient recipient = Begin("1", 2);
    EXPECT_EQ(recipient.digest, "1");
    EXPECT_THAT(ProblemsOf(recipient), ElementsAre(a, b));
    End(deliveries::Finish, recipient, "8");
    EXPECT_THAT(ProblemsOf(recipient), IsEmpty());
    EXPECT_THAT(Names("7"), ElementsAre("s"));
    EXPECT_THAT(ProblemsOf({.name = "r"}), ElementsAre(c));
    EXPECT_THAT(ProblemsOf({.name = "s"}), ElementsAre(a, b, c));
}

// Behaviour: A recipient with nothing to be told is forgotten when its pause is over
TEST_P(Deliveries, OfNobodyAreForgotten) {
    Raise("a");
    RouteAll({"r"});
    End(deliveries::Finish, Begin("1"), "8");
    EXPECT_EQ(Rows("recipient"), 1);
    EXPECT_EQ(Begin("2").digest, "");
    EXPECT_EQ(Rows("recipient"), 0);
}

// Behaviour: What was surely not accepted waits again, together with what has come meanwhile; failures are
//   counted until a success, after a restart too
TEST_P(Deliveries, ThatAreRefusedWaitAgain) {
    const long long a = Raise("a");
    RouteAll({"r"});
    for (int failures = 1; failures <= 3; ++failures) {
        End(deliveries::Postpone, Begin(std::to_string(failures)), "6");
        Reopen();
        EXPECT_THAT(Names("5"), IsEmpty());
        EXPECT_EQ(Due("6").at(0).failures, failures);
        EXPECT_EQ(Due("6").at(0).digest, "");
    }
    const long long b = Raise("b");
    RouteAll({"r"});
    const Recipient recipient = Begin("4");
    EXPECT_THAT(ProblemsOf(recipient), ElementsAre(a, b));
    End(deliveries::Finish, recipient, "6");
    EXPECT_EQ(Due("6").at(0).failures, 0);
}

// Behaviour: A digest of which nobody knows whether it was accepted is tried again as it was
TEST_P(Deliveries, OfUnknownOutcomeAreRepeatedAsTheyWere) {
    const long long a = Raise("a");
    RouteAll({"r"});
    End(deliveries::Repeat, Begin("1"), "6");
    Raise("b");
    RouteAll({"r"});
    Reopen();
    EXPECT_THAT(GiveUpInterrupted(), IsEmpty());
    const Recipient recipient = Begin("2");
    EXPECT_EQ(recipient.digest, "1");
    EXPECT_EQ(recipient.failures, 1);
    EXPECT_THAT(ProblemsOf(recipient), ElementsAre(a));
}

// Behaviour: A delivery that a service's end has interrupted after handing it over is given up and counted as
//   doubtful until the next success; one that was not handed over is done again
TEST_P(Deliveries, ThatWereInterruptedAreDoubtful) {
    Raise("a");
    Raise("b");
    RouteAll({"r"});
    Recipient recipient = Begin("1");
    Reopen();
    EXPECT_THAT(GiveUpInterrupted(), IsEmpty());
    recipient = Begin("2");
    EXPECT_EQ(recipient.digest, "1");
    EXPECT_THAT(ProblemsOf(recipient), SizeIs(2));

    Do([](Transaction& transaction) { deliveries::SetHanded(transaction, "r"); });
    Reopen();
    EXPECT_THAT(GiveUpInterrupted(), ElementsAre("r"));
    EXPECT_THAT(GiveUpInterrupted(), IsEmpty());
    EXPECT_EQ(Rows("delivery"), 0);
    EXPECT_EQ(Due("8").at(0).doubtful, 2);
    EXPECT_EQ(Begin("3").digest, "") << "nothing else is to be told";
    EXPECT_THAT(Names("8"), IsEmpty());
    Raise("c");
    RouteAll({"r"});
    EXPECT_EQ(Due("8").at(0).doubtful, 2);
    End(deliveries::Finish, Begin("4"), "6");
    EXPECT_EQ(Due("8").at(0).doubtful, 0);
}

// Behaviour: What waits for recipients of one kind can be given to others, what waits for those of another
// kind
//   stays
TEST_P(Deliveries, CanBeGivenToOthers) {
    const long long number = Raise("a");
    RouteAll({"mail:old@example", "command:root"});
    Do([](Transaction& transaction) { deliveries::Reroute(transaction, "mail:"); });
    EXPECT_THAT(Unrouted(), IsEmpty());
    RouteAll({"mail:new@example"}, "mail:");
    EXPECT_THAT(ProblemsOf({.name = "mail:new@example"}), ElementsAre(number));
    EXPECT_THAT(ProblemsOf({.name = "mail:old@example"}), IsEmpty());
    EXPECT_THAT(ProblemsOf({.name = "command:root"}), ElementsAre(number));
}

// Behaviour: A recipient whose time lies further ahead than any pause, the clock having been set back, is due
TEST_P(Deliveries, OfATimeFarAheadAreDue) {
    Raise("a");
    RouteAll({"r"});
    End(deliveries::Finish, Begin("1"), "99");
    EXPECT_THAT(Names("0"), ElementsAre("r"));
}

// Behaviour: What waits goes with a notification that is forgotten
TEST_P(Deliveries, AreForgotten) {
    for (const std::string about : {"a", "b", "c"}) Raise(about);
    RouteAll({"r"});
    Do([](Transaction& transaction) { return problems::RemoveOlder(transaction, "", 2, 10); });
    EXPECT_EQ(Rows("delivery"), 2);
}

}  // namespace

}  // namespace zelvek::testing
