// What the panel asks for one of its customers.
#include <map>
#include <string>

#include "service.h"

namespace zelvek::testing {

namespace {

using Customer = ServiceTest;

// Behaviours of: Rights

// Behaviour: A query for one customer of the panel finds that customer's jobs and notifications alone;
// another
//   one's job is as if it were not there, whatever is asked of it
TEST_F(Customer, HasTheirJobsAloneWhereThePanelNamesThem) {
    Start();
    const std::string annas = AddJob();
    const std::string bobs = AddJob({{"domain", "blog.example"}, {"user_name", "bob"}});
    for (const std::string verb : {"show", "edit", "claim", "renew", "retry", "pause", "resume", "remove"}) {
        for (const std::string user : {"anna", "nobody", ""}) {
            try {
                Ask("func=zelvek.job." + verb, {{"elid", bobs}, {"user_name", user}, {"check_type", "http"}});
                ADD_FAILURE() << verb << " of another user's job";
            } catch (const vek_err::Error& error) {
                EXPECT_EQ(error.type(), "missed") << verb;
                EXPECT_STREQ(error.what(), "there is no job 2") << verb;
            }
        }
    }
    const std::map<std::string, std::string> after{{"after", bobs}, {"user_name", "anna"}};
    EXPECT_EQ(ErrorOf("func=zelvek.job.attention", after), "missed");
    EXPECT_EQ(ErrorOf("func=zelvek.certificate.list", after), "missed");
    EXPECT_EQ(Zelvek({"job", "pause", annas, "--user", "anna"}).status, 0);
    EXPECT_EQ(Zelvek({"job", "resume", annas, "--user", "anna"}).status, 0);
    EXPECT_EQ(Zelvek({"job", "retry", annas, "--user", "anna"}).out, "1 job tried again\n");
    EXPECT_EQ(Zelvek({"job", "edit", annas, "--user", "anna", "--check", "dns"}).status, 0);
    EXPECT_EQ(Zelvek({"job", "show", bobs, "--user", "anna"}).err, "zelvek: there is no job 2\n");
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + bobs).value("paused"), "off") << "nothing has changed it";
    EXPECT_EQ(Zelvek({"job", "remove", annas, "--user", "anna"}).status, 0);
}

// Behaviour: A query for one customer of the panel finds that ...
TEST_F(Customer, HasTheirNotificationsAlone) {
    Start();
    for (const std::string user : {"anna", "bob"}) {
        Ask("func=problems.register&sok=ok&name=trouble&level=low",
            {{"id", user}, {"owner", user}, {"param_name", "shop.example"}});
    }
    const auto listed = Ask("func=zelvek.problem.list&user_name=anna");
    const auto of_anna = listed.xml().GetNodes("/doc/elem");
    ASSERT_EQ(of_anna.size(), 1U);
    EXPECT_EQ(of_anna.front().Value("id"), "anna");
    EXPECT_EQ(ErrorOf("func=zelvek.problem.clear&number=2&user_name=anna"), "missed");
    EXPECT_EQ(ErrorOf("func=zelvek.problem.seen&number=1&user_name="), "missed");
    EXPECT_EQ(ErrorOf("func=zelvek.problem.clear&user_name=anna"), "value");
    EXPECT_EQ(Ask("func=zelvek.problem.list").xml().GetNodes("/doc/elem").size(), 2U);
    EXPECT_EQ(ErrorOf("func=zelvek.problem.clear&number=1&user_name=anna"), "");
    EXPECT_NE(Zelvek({"problem", "list", "--user", "bob"}).out.find("trouble"), std::string::npos);
    EXPECT_EQ(Zelvek({"problem", "list", "--user", "anna"}).out.find("trouble"), std::string::npos);
}

}  // namespace

}  // namespace zelvek::testing
