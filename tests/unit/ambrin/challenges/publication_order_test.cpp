#include "challenges/publication.h"
#include "support/job_test.h"
#include "vek/err.h"

// How far the loops over a list get when one challenge fails, and what they put into the caller's map.
namespace {

using ambrin_test::JobTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Form = std::map<std::string, std::string>;

class PublicationOrder : public JobTest {
protected:
    PublicationOrder() {
        world.AlwaysPanel("func=domain&su=ann", [](const std::string&) {
            return "<doc><elem><name>example.org</name></elem></doc>";
        });
    }

    Form MapFor(const std::string& type) const {
        return {{"user", "ann"}, {"type", type}, {"domain", "example.org"}, {"thumbprint", "T"}};
    }

    static std::string File(const std::string& action, const std::string& number) {
        return "func=ambrin_challenge&action=" + action + "&user_name=ann&file_name=t" + number +
               "&content=c" + number;
    }

    static std::string Removal(const std::string& number) {
        return "sok=ok&rtype=txt&elid=_acme-challenge.d" + number + ".%20TXT%20%20c" + number +
               "&func=domain.record.delete&plid=example.org&su=ann&value=c" + number;
    }

    std::list<ChallengeData> challenges{
        {"t1", "u1", "d1", "a1", "c1"}, {"t2", "u2", "d2", "a2", "c2"}, {"t3", "u3", "d3", "a3", "c3"}};
};

// Behaviours of: Publication

// Behaviour: A failure in the middle of a list leaves the ones before it published and the ones after it
//   untouched
TEST_F(PublicationOrder, FailureInTheMiddleLeavesTheOnesBeforeAndSkipsTheOnesAfter) {
    world.AnswerPanel(File("create", "1"), "<doc/>");
    world.FailPanel(File("create", "2"), "io", "disk full");
    Form map = MapFor("http");
    EXPECT_THROW(CreateAllChallenges(challenges, map), vek_err::Error);
    EXPECT_THAT(Story(), ElementsAre("panel " + File("create", "1"), "panel " + File("create", "2")));
}

// Behaviour: A failed removal leaves the ones after it
TEST_F(PublicationOrder, FailedRemovalLeavesTheOnesAfterIt) {
    world.AnswerPanel(File("delete", "1"), "<doc/>");
    world.FailPanel(File("delete", "2"), "io", "read-only");
    Form map = MapFor("http");
    EXPECT_THROW(DeleteAllChallenges(challenges, map), vek_err::Error);
    EXPECT_THAT(Story(), ElementsAre("panel " + File("delete", "1"), "panel " + File("delete", "2")));
}

// Behaviour: A record that exists already is no error ...
TEST_F(PublicationOrder, RemovalThatThePanelCallsExistingGoesOn) {
    world.AnswerPanel(Removal("1"), "<doc/>");
    world.FailPanel(Removal("2"), "exists", "there");
    world.AnswerPanel(Removal("3"), "<doc/>");
    Form map = MapFor("dns");
    EXPECT_NO_THROW(DeleteAllChallenges(challenges, map));
    EXPECT_THAT(LogLines(), ElementsAre("9 Ambrin deleteing challenge", "9 Ambrin deleteing challenge",
                                        "4 TXT record already exist", "9 Ambrin deleteing challenge"));
}

// Behaviour: The loops leave the last challenge's values ...
TEST_F(PublicationOrder, RemovalAloneNamesNoRecordInTheMap) {
    world.AlwaysPanel("func=ambrin_challenge&*", [](const std::string&) { return "<doc/>"; });
    Form map = MapFor("http");
    DeleteAllChallenges(challenges, map);
    EXPECT_THAT(map,
                ElementsAre(Pair("action", "delete"), Pair("content", "c3"), Pair("domain", "example.org"),
                            Pair("elid", "_acme-challenge.d3. TXT  c3"), Pair("thumbprint", "T"),
                            Pair("token", "t3"), Pair("type", "http"), Pair("user", "ann")));
}

// Behaviour: Any other panel error reaches the caller ...
TEST_F(PublicationOrder, ErrorOfThePanelReachesTheCallerUnchanged) {
    world.FailPanel("sok=ok&rtype=txt&*", "missed", "no such zone");
    Form map = MapFor("dns");
    try {
        CreateAllChallenges(challenges, map);
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "missed");
        EXPECT_STREQ(error.what(), "no such zone");
    }
    EXPECT_THAT(JobLog(), IsEmpty());
}

}  // namespace
