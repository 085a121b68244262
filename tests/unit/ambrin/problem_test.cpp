#include "problem.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::ParseForm;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

using Form = std::map<std::string, std::string>;

class Problems : public JobTest {
protected:
    Problems() { ambrin_data.certname = "shop.example"; }

    void AcceptAll() {
        world.AlwaysPanel("func=problems.register&sok=ok&*", [](const std::string&) { return "<doc/>"; });
    }

    std::vector<Form> Sent() const {
        std::vector<Form> sent;
        for (const auto& call : world.calls())
            if (call.kind == "panel") sent.push_back(ParseForm(call.text));
        return sent;
    }

    /// "owner: problem name", in the order of sending; the administrator's query names no owner.
    std::vector<std::string> Told() const {
        std::vector<std::string> told;
        for (const Form& form : Sent())
            told.push_back((form.contains("owner") ? form.at("owner") : "(none)") + ": " + form.at("name"));
        return told;
    }
};

// Behaviours of: Problems

// Behaviour: A problem is sent once for each target, in the byte order of the owners
// Behaviour: The administrator, "root", is named by no owner
TEST_F(Problems, OneQueryPerTargetInTheOrderOfTheOwners) {
    AcceptAll();
    RegisterProblemAmbrin(
        {"message", {{"name", "shop.example"}}, {{"root", "p1"}, {"zoe", "p3"}, {"ann", "p2"}}});
    EXPECT_THAT(Told(), ElementsAre("ann: p2", "(none): p1", "zoe: p3"));
}

// Behaviour: A problem's query carries name, id, level, one "param_" entry for each parameter, and the owner
TEST_F(Problems, QueryCarriesNameIdLevelParametersAndOwner) {
    AcceptAll();
    RegisterProblemAmbrin(
        {"message", {{"name", "shop.example"}, {"date", "2030-06-01 12:00:00"}}, {{"ann", "p2"}}});
    EXPECT_THAT(Sent(),
                ElementsAre(ElementsAre(Pair("func", "problems.register"), Pair("id", "0000000000000001"),
                                        Pair("level", "message"), Pair("name", "p2"), Pair("owner", "ann"),
                                        Pair("param_date", "2030-06-01 12:00:00"),
                                        Pair("param_name", "shop.example"), Pair("sok", "ok"))));
}

// Behaviour: Each query has an id of its own, of eight random bytes in hexadecimal
TEST_F(Problems, EveryQueryHasAnIdOfItsOwn) {
    AcceptAll();
    RegisterProblemAmbrin({"message", {}, {{"root", "p"}, {"zoe", "p"}}});
    EXPECT_THAT(world.Lines({"random"}), ElementsAre("random: 8", "random: 8"));
    EXPECT_EQ(Sent()[0].at("id"), "0000000000000001");
    EXPECT_EQ(Sent()[1].at("id"), "0000000000000002");
}

// Behaviour: A problem without targets sends nothing
TEST_F(Problems, ProblemWithoutTargetsSendsNothing) {
    RegisterProblemAmbrin({"message", {{"name", "shop.example"}}, {}});
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: A panel error leaves the further targets untold and reaches the caller; nothing is logged
TEST_F(Problems, PanelErrorLeavesTheFurtherTargetsUntold) {
    world.AnswerPanel("func=problems.register&sok=ok&*", "<doc/>");
    world.FailPanel("func=problems.register&sok=ok&*", "value", "no");
    EXPECT_THROW(RegisterProblemAmbrin({"message", {}, {{"a", "p"}, {"b", "p"}, {"c", "p"}}}),
                 vek_err::Error);
    EXPECT_THAT(Told(), ElementsAre("a: p", "b: p"));
    EXPECT_EQ(ambrin_data.log, "");
}

// Behaviour: No parameter can become another one
TEST_F(Problems, ParametersCannotBecomeOtherParameters) {
    AcceptAll();
    RegisterProblemAmbrin({"message", {{"error", "a&owner=mallory"}}, {{"root", "p"}}});
    EXPECT_EQ(Sent()[0].at("param_error"), "a&owner=mallory");
    EXPECT_FALSE(Sent()[0].contains("owner"));
}

class Stopping : public Problems {
protected:
    Stopping() { AcceptAll(); }
};

// Behaviour: Stopping tells the administrator "ambrin_failed_admin" and the owner "ambrin_failed_user", at
//   level "error" with name and error text
TEST_F(Stopping, UserThatSortsBeforeRootIsToldFirst) {
    ambrin_data.user_name = "ann";
    StopWithProblem("no key");
    EXPECT_THAT(Told(), ElementsAre("ann: ambrin_failed_user", "(none): ambrin_failed_admin"));
    for (const Form& form : Sent()) {
        EXPECT_EQ(form.at("level"), "error");
        EXPECT_EQ(form.at("param_name"), "shop.example");
        EXPECT_EQ(form.at("param_error"), "no key");
        EXPECT_THAT(form.at("id"), testing::MatchesRegex("[0-9a-f]{16}"));
    }
}

// Behaviour: An owner who sorts after "root" is told after the administrator
TEST_F(Stopping, UserThatSortsAfterRootIsToldSecond) {
    ambrin_data.user_name = "zoe";
    StopWithProblem("");
    EXPECT_THAT(Told(), ElementsAre("(none): ambrin_failed_admin", "zoe: ambrin_failed_user"));
}

// Behaviour: The further addressee, where there is one, is told "ambrin_failed_user"
TEST_F(Stopping, FurtherAddresseeIsToldAsAUser) {
    ambrin_data.user_name = "zoe";
    ambrin_data.res_name = "reseller";
    StopWithProblem("");
    EXPECT_THAT(Told(), ElementsAre("reseller: ambrin_failed_user", "(none): ambrin_failed_admin",
                                    "zoe: ambrin_failed_user"));
}

// Behaviour: An owner named "root" takes the administrator's place: one query, without owner
TEST_F(Stopping, UserNamedRootTakesTheAdministratorsPlace) {
    ambrin_data.user_name = "root";
    StopWithProblem("");
    EXPECT_THAT(Told(), ElementsAre("(none): ambrin_failed_user"));
}

// Behaviour: A further addressee who is the owner is told once
TEST_F(Stopping, AddresseeThatIsTheUserIsToldOnce) {
    ambrin_data.user_name = "ann";
    ambrin_data.res_name = "ann";
    StopWithProblem("");
    EXPECT_THAT(Told(), ElementsAre("ann: ambrin_failed_user", "(none): ambrin_failed_admin"));
}

// Behaviour: An empty error text is sent as an empty parameter
TEST_F(Stopping, EmptyErrorTextIsSentAsAnEmptyParameter) {
    StopWithProblem("");
    ASSERT_THAT(Sent(), SizeIs(2)) << "the user's name is empty here, and is an owner like any other";
    EXPECT_EQ(Sent()[0].at("param_error"), "");
    EXPECT_EQ(Sent()[0].at("owner"), "");
}

// Behaviour: A stopped job is failed, whatever it was before, and gets no log entry by it
TEST_F(Stopping, JobIsMarkedFailedWhateverItWasBefore) {
    StopWithProblem("");
    EXPECT_TRUE(ambrin_data.failed);
    StopWithProblem("");
    EXPECT_TRUE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: Stopping a job is traced as "Ambrin stop trying" ahead of the notifications
TEST_F(Stopping, TraceComesAheadOfTheNotifications) {
    ambrin_data.user_name = "root";
    StopWithProblem("");
    ASSERT_FALSE(world.calls().empty());
    EXPECT_EQ(world.calls().front().kind, "log");
    EXPECT_THAT(LogLines(), ElementsAre("9 Ambrin stop trying"));
}

// Behaviour: A stop whose notification fails leaves the job unmarked
TEST_F(Problems, JobWhoseNotificationFailedIsNotMarkedFailed) {
    ambrin_data.user_name = "zoe";
    world.AnswerPanel("*", "<doc/>");
    world.FailPanel("*", "value", "no");
    EXPECT_THROW(StopWithProblem(""), vek_err::Error);
    EXPECT_FALSE(ambrin_data.failed);
}

// Behaviour: Pause and success have the same addressees as a stop
TEST(JobTargets, AdministratorThenOwnerThenFurtherAddressee) {
    const ambrin_test::FreshRecord fresh;
    ambrin_data.user_name = "ann";
    EXPECT_THAT(JobTargets("pa", "pu"), ElementsAre(Pair("ann", "pu"), Pair("root", "pa")));
    ambrin_data.res_name = "root";
    EXPECT_THAT(JobTargets("pa", "pu"), ElementsAre(Pair("ann", "pu"), Pair("root", "pu")));
}

}  // namespace
