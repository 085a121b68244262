// Notifications, the functions' table, and what the command line's functions never give away.
#include "service.h"
#include "vek/str.h"

namespace zelvek::testing {

namespace {

class Panel : public ServiceTest {
protected:
    Panel() { Start(); }

    /// How a job for anna's shop.example with `entries` besides or instead is refused; empty where it is
    /// added.
    static std::string RefusalOf(const std::map<std::string, std::string>& entries) {
        std::map<std::string, std::string> all{
            {"domain", "shop.example"}, {"user_name", "anna"}, {"foreign_names", "on"}};
        for (const auto& [key, value] : entries) all[key] = value;
        return ErrorOf("func=zelvek.job.add", all);
    }

    std::vector<std::string> Problems() {
        std::vector<std::string> problems;
        const auto list = Ask("func=zelvek.problem.list");
        const auto nodes = list.xml().GetNodes("/doc/elem");
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            std::string text =
                nodes[i].Value("name") + " " + nodes[i].Value("level") + " " + nodes[i].Value("owner");
            for (const auto& parameter :
                 list.xml().GetNodes("/doc/elem[" + std::to_string(i + 1) + "]/parameter")) {
                text += " " + parameter.Value("name") + "=" + parameter.Value("value");
            }
            problems.push_back(text);
        }
        return problems;
    }
};

// Behaviours of: Notifications (problems.register)

// Behaviour: A notification is kept with level, owner, time and parameters; without an owner it is the
//   administrator's
TEST_F(Panel, KeepsNotificationsWithTheirParameters) {
    Ask("func=problems.register&sok=ok", {{"name", "ambrin_failed_admin"},
                                          {"id", "0123456789abcdef"},
                                          {"level", "error"},
                                          {"param_name", "shop.example"},
                                          {"param_error", "a;b=c & \"d\"\n<e>"}});
    Ask("func=problems.register&sok=ok", {{"name", "ambrin_failed_user"},
                                          {"id", "0123456789abcde0"},
                                          {"level", "error"},
                                          {"owner", "anna"},
                                          {"param_error", ""}});
    EXPECT_EQ(Problems(), (std::vector<std::string>{
                              "ambrin_failed_admin error root error=a;b=c & \"d\"\n<e> name=shop.example",
                              "ambrin_failed_user error anna error="}));
}

// Behaviour: A repeated notification is not doubled
TEST_F(Panel, ARepeatedNotificationIsNotDoubled) {
    const std::map<std::string, std::string> problem{
        {"name", "n"}, {"id", "1"}, {"level", "message"}, {"param_a", "b"}};
    Ask("func=problems.register&sok=ok", problem);
    Ask("func=problems.register&sok=ok", problem);
    EXPECT_EQ(Problems().size(), 1U);
}

// Behaviour: A notification needs name and id
TEST_F(Panel, ANotificationNeedsNameAndId) {
    EXPECT_EQ(ErrorOf("func=problems.register&sok=ok", {{"name", "n"}}), "value");
    EXPECT_EQ(ErrorOf("func=problems.register&sok=ok", {{"id", "1"}}), "value");
    EXPECT_EQ(ErrorOf("func=problems.register&sok=ok", {{"name", "n"}, {"id", "1"}, {"param_x", "\x01"}}),
              "value");
    EXPECT_TRUE(Problems().empty());
}

// Behaviours of: Socket and answers

// Behaviour: An unknown function, or none, is "missed"; an error says what is wrong
TEST_F(Panel, AnUnknownFunctionIsMissed) {
    EXPECT_EQ(ErrorOf("func=no.such.function"), "missed");
    EXPECT_EQ(ErrorOf("sok=ok&rtype=txt"), "missed") << "no function at all";
    EXPECT_EQ(ErrorOf("func=%00%ff"), "missed");
}

// Behaviour: An unknown function, or none, is "missed" ...
TEST_F(Panel, ErrorsSayWhatIsWrong) {
    try {
        Ask("func=zelvek.job.add", {{"domain", "a..b"}, {"user_name", "anna"}});
        FAIL() << "such a name is accepted";
    } catch (const vek_err::Error& error) {
        EXPECT_STREQ(error.what(), "\"a..b\" is no domain name");
    }
}

// Behaviours of: Command line

// Behaviour: The account is shown without its key, and ...
TEST_F(Panel, NoFunctionOfTheCommandLineGivesAKey) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"kid", "k"}, {"acmekey", "SECRET"}, {"update_default_account", "on"}});
    const auto account = Ask("func=zelvek.account.show");
    EXPECT_EQ(account.value("kid"), "k");
    EXPECT_EQ(account.value("key"), "on");
    for (const std::string& query :
         {std::string("func=zelvek.account.show"), std::string("func=zelvek.job.list"),
          "func=zelvek.job.show&elid=" + id}) {
        EXPECT_FALSE(Ask(query).xml().GetNode("//*[contains(text(), 'SECRET')]")) << query;
    }
}

// Behaviour: What a job is added with is checked
TEST_F(Panel, JobsAreCheckedWhenTheyAreAdded) {
    const std::vector<std::map<std::string, std::string>> wrong{
        {{"domain", ""}},
        {{"domain", "-a.example"}},
        {{"domain", std::string(64, 'a') + ".example"}},
        {{"domain", "192.0.2.1"}},
        {{"domain", "*.shop.example"}},
        {{"domain", "*.shop.example"}, {"check_type", "http"}},
        {{"domain", "www.*.example"}, {"check_type", "dns"}},
        {{"aliases", "good.example bad..example"}},
        {{"check_type", "mail"}},
        {{"user_name", ""}},
        {{"user_name", "../etc"}},
        {{"user_name", ".hidden"}},
        {{"user_name", "-option"}},
        {{"user_name", "a b"}},
        {{"certname", "../../etc"}},
        {{"certname", "a/b"}},
        {{"certname", "a\nb"}},
        {{"certname", std::string(231, 'a')}},
        {{"domain", "a." + std::string(60, 'b') + "." + std::string(60, 'c') + "." + std::string(60, 'd') +
                        "." + std::string(50, 'e')}},
        {{"user_name", std::string(231, 'a')}},
        {{"domain", "_x.shop.example"}},
        {{"aliases", "_x.shop.example"}},
        {{"csr_key_type", "dsa"}},
        {{"csr_key_size", "1"}},
        {{"csr_key_size", "384"}, {"csr_key_type", "ec"}},
        {{"csr_key_curve", "P-256"}, {"csr_key_type", "rsa"}},
        {{"csr_country", "Germany"}},
        {{"csr_organization", "a\tb"}},
        {{"csr_organization", std::string(65, 'x')}},
        {{"csr_email", "bücher@shop.example"}},
        {{"csr_domain", "evil.example"}},
        {{"csr_certname_ascii", "other"}},
        {{"max_account_check_attempts", "x"}}};
    for (const auto& entries : wrong) {
        EXPECT_EQ(RefusalOf(entries), "value") << entries.begin()->first << "=" << entries.begin()->second;
    }
    EXPECT_EQ(RefusalOf({{"domain", "*.shop.example"}, {"check_type", "dns"}}), "");
    EXPECT_EQ(RefusalOf({{"csr_key_type", "rsa"}, {"csr_key_size", "4096"}, {"csr_country", "de"}}), "");
    EXPECT_EQ(Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").size(), 2U) << "nothing else was added";
}

// Behaviour: What a job is added with is checked ...
TEST_F(Panel, ARequestsValuesAreRefusedWithThoseThatCanBeTaken) {
    const auto refusal = [](const std::string& key, const std::string& value) -> std::string {
        try {
            AddJob({{key, value}});
        } catch (const vek_err::Error& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(refusal("csr_key_type", "dsa"), "key_type \"dsa\" cannot be taken: it is rsa or ec");
    EXPECT_EQ(
        refusal("csr_kind", "ec"),
        "a certificate's request takes key_type, key_size, key_curve, country, state, locality, organization,"
        " unit, email, no \"kind\"");
}

// Behaviour: A job's names lie in its user's own domains; of several domains that hold a name the longest
//   one decides, and the administrator may take other names
TEST_F(Panel, AJobsNamesLieInItsUsersDomains) {
    for (const auto& [name, user] : std::map<std::string, std::string>{{"shop.example", "anna"},
                                                                       {"bücher.example", "anna"},
                                                                       {"sub.shop.example", "bob"},
                                                                       {"a.sub.shop.example", "anna"}}) {
        Ask("func=zelvek.domain.add", {{"name", name}, {"user_name", user}});
    }
    const auto refusal = [](const std::string& names, const std::string& user) {
        std::string aliases = names;
        const std::string main = str::GetWord(aliases, ' ');
        return RefusalOf({{"domain", main},
                          {"aliases", aliases},
                          {"user_name", user},
                          {"check_type", "dns"},
                          {"foreign_names", "off"}});
    };
    for (const std::string names :
         {"Shop.Example", "www.shop.example", "*.www.shop.example", "XN--bcher-kva.example",
          "a.sub.shop.example x.a.sub.shop.example", "notsub.shop.example"}) {
        EXPECT_EQ(refusal(names, "anna"), "") << names;
    }
    EXPECT_EQ(refusal("sub.shop.example", "bob"), "");
    for (const std::string names :
         {"example", "workshop.example", "other.example", "shop.example sub.shop.example",
          "shop.example *.sub.shop.example", "shop.example deep.b.sub.shop.example", "*.other.example"}) {
        EXPECT_EQ(refusal(names, "anna"), "missed") << names;
    }
    EXPECT_EQ(refusal("*.shop.example", "anna"), "missed") << "it stands for sub.shop.example, too";
    EXPECT_EQ(refusal("*.bücher.example", "anna"), "");
    EXPECT_EQ(refusal("shop.example", "bob"), "missed");
    EXPECT_EQ(refusal("a.sub.shop.example", "bob"), "missed");
    EXPECT_EQ(RefusalOf({{"domain", "other.example"}, {"foreign_names", "on"}}), "");
}

// Behaviour: A name outside its user's domains is named, with the command that helps
TEST_F(Panel, AForeignNameIsNamed) {
    Ask("func=zelvek.domain.add&name=shop.example&user_name=anna");
    try {
        Ask("func=zelvek.job.add", {{"domain", "shop.example"},
                                    {"aliases", "www.shop.example *.other.example third.example"},
                                    {"user_name", "anna"},
                                    {"check_type", "dns"}});
        FAIL() << "such a name is accepted";
    } catch (const vek_err::Error& error) {
        EXPECT_STREQ(error.what(),
                     "\"*.other.example\" is in no domain of user anna;"
                     " \"zelvek domain add\" gives user anna a domain of their own");
    }
    EXPECT_TRUE(Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").empty());
}

// Behaviour: A user's second job for a certificate is refused and told the first one, whose certificate it
//   would replace; other users and other certificates are free
TEST_F(Panel, AUsersSecondJobForACertificateIsRefused) {
    const std::map<std::string, std::string> wildcard{{"domain", "*.shop.example"}, {"check_type", "dns"}};
    ASSERT_EQ(RefusalOf(wildcard), "");
    EXPECT_EQ(RefusalOf(wildcard), "exists");
    for (const char* certname : {"_wildcard.shop.example", "*.SHOP.example", "_Wildcard.Shop.Example"}) {
        EXPECT_EQ(RefusalOf({{"certname", certname}}), "exists") << certname;
    }
    EXPECT_EQ(RefusalOf({{"certname", "shop.example"}}), "");
    EXPECT_EQ(RefusalOf({{"certname", "Bücher.example"}}), "");
    EXPECT_EQ(RefusalOf({{"certname", "xn--bcher-kva.EXAMPLE"}}), "exists");
    EXPECT_EQ(RefusalOf({{"certname", "shop.example"}, {"user_name", "bob"}}), "");
    EXPECT_EQ(RefusalOf({{"certname", "shop.example"}, {"user_name", "Anna"}}), "");

    Ask("func=zelvek.job.remove&elid=1");
    EXPECT_EQ(RefusalOf({{"certname", "_wildcard.shop.example"}}), "");
}

// Behaviour: A user's second job for a certificate ...
TEST_F(Panel, TheJobThatHasTheCertificateIsNamed) {
    AddJob({{"certname", "Other"}});
    AddJob({{"certname", "*.shop.example"}});
    try {
        AddJob({{"certname", "_wildcard.shop.example"}});
        FAIL() << "a second job is accepted";
    } catch (const vek_err::Error& error) {
        EXPECT_STREQ(error.what(),
                     "job 2 of user anna has the certificate \"*.shop.example\" already: remove that job"
                     " (\"zelvek job remove 2\"), or name this one's certificate otherwise (\"--certname\")");
    }
}

// Behaviour: A job that is running is neither run twice ...
TEST_F(Panel, ARunningJobIsNeitherClaimedNorRemoved) {
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + id), "busy");
    EXPECT_EQ(ErrorOf("func=zelvek.job.remove&elid=" + id), "busy");
    Write(id);
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + id), "");
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + id), "busy");
    ReadJob(id);
    Write(id);
    EXPECT_EQ(ErrorOf("func=zelvek.job.remove&elid=" + id), "");
    EXPECT_EQ(ErrorOf("func=zelvek.job.show&elid=" + id), "missed");
}

// Behaviour: A stopped job that somebody runs gets another try
TEST_F(Panel, AStoppedJobThatSomebodyRunsGetsAnotherTry) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"failed", "on"}});
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("failed"), "on");
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + id), "");
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("failed"), "off");
}

// Behaviour: The id of a removed job is not used again
TEST_F(Panel, TheIdOfARemovedJobIsNotUsedAgain) {
    const std::string first = AddJob();
    Ask("func=zelvek.job.remove&elid=" + first);
    EXPECT_NE(AddJob(), first);
}

}  // namespace

}  // namespace zelvek::testing
