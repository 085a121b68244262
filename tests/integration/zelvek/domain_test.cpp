// Users' domains and TXT records in their zones.
#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>

#include "service.h"

namespace zelvek::testing {

namespace {

class Domain : public ServiceTest {
protected:
    static void Add(const std::string& name, const std::string& user) {
        Ask("func=zelvek.domain.add", {{"name", name}, {"user_name", user}});
    }

    static std::vector<std::string> DomainsOf(const std::string& user) {
        std::vector<std::string> names;
        const auto list = Ask("func=domain", {{"su", user}});
        for (const auto& node : list.xml().GetNodes("/doc/elem")) names.push_back(node.Value("name"));
        return names;
    }

    static std::string Edit(const std::string& user, const std::string& zone, const std::string& name,
                            const std::string& value) {
        return ErrorOf("sok=ok&rtype=txt&func=domain.record.edit",
                       {{"su", user}, {"plid", zone}, {"name", name}, {"value", value}});
    }

    static std::string Delete(const std::string& user, const std::string& zone, const std::string& key) {
        return ErrorOf("sok=ok&rtype=txt&func=domain.record.delete",
                       {{"su", user}, {"plid", zone}, {"elid", key}});
    }
};

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A user sees their own domains, in the form in which they were added
TEST_F(Domain, EachUserSeesTheirOwnAsTheyWereAdded) {
    Start();
    Add("Shop.example", "anna");
    Add("bücher.example", "anna");
    Add("xn--mller-kva.example", "bob");
    EXPECT_EQ(DomainsOf("anna"), (std::vector<std::string>{"Shop.example", "bücher.example"}));
    EXPECT_EQ(DomainsOf("bob"), std::vector<std::string>{"xn--mller-kva.example"});
    EXPECT_TRUE(DomainsOf("eve").empty());
    EXPECT_EQ(ErrorOf("func=domain&su="), "value") << "nobody's are not everybody's";
}

// Behaviour: A domain belongs to one user, in whatever form it is written
TEST_F(Domain, BelongsToOneUser) {
    Start();
    Add("bücher.example", "anna");
    EXPECT_EQ(ErrorOf("func=zelvek.domain.add&name=BÜCHER.example&user_name=eve"), "exists");
    EXPECT_EQ(ErrorOf("func=zelvek.domain.add&name=xn--bcher-kva.EXAMPLE&user_name=eve"), "exists");
    EXPECT_EQ(ErrorOf("func=zelvek.domain.add&name=*.shop.example&user_name=eve"), "value");
}

// Behaviour: A record goes into the named zone, beside others of its name; an existing one is "exists",
//   removing a missing one succeeds
TEST_F(Domain, RecordsComeIntoTheNamedZone) {
    Start();
    Add("shop.example", "anna");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.shop.example.", "one"), "");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.www.shop.example.", "two"), "");
    EXPECT_EQ(
        Records(),
        "shop.example _acme-challenge.shop.example one\nshop.example _acme-challenge.www.shop.example two\n");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.shop.example.", "one"), "exists");
    EXPECT_EQ(Delete("anna", "shop.example", "_acme-challenge.shop.example. TXT  one"), "");
    EXPECT_EQ(Delete("anna", "shop.example", "_acme-challenge.shop.example. TXT  one"), "");
    EXPECT_EQ(Records(), "shop.example _acme-challenge.www.shop.example two\n");
}

// Behaviour: Names are compared in one form: ASCII, lower case, no final dot
TEST_F(Domain, NamesAreComparedInOneForm) {
    Start();
    Add("Bücher.example", "anna");
    EXPECT_EQ(Edit("anna", "XN--BCHER-KVA.example.", "_ACME-challenge.bücher.EXAMPLE.", "v"), "");
    EXPECT_EQ(Records(), "xn--bcher-kva.example _acme-challenge.xn--bcher-kva.example v\n");
}

// Behaviour: A record goes into the longest of the user's own zones that holds its name
TEST_F(Domain, ANameOutsideTheNamedZoneGoesIntoTheUsersOwnZoneThatHoldsIt) {
    Start();
    for (const char* name : {"shop.example", "other.example", "deep.other.example"}) Add(name, "anna");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.www.other.example.", "one"), "");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.deep.other.example.", "two"), "");
    EXPECT_EQ(Edit("anna", "other.example", "_acme-challenge.deep.other.example.", "three"), "")
        << "a zone cut out of the named one holds it";
    EXPECT_EQ(Edit("anna", "", "_acme-challenge.shop.example.", "four"), "") << "no zone named";
    EXPECT_EQ(Records(),
              "other.example _acme-challenge.www.other.example one\n"
              "deep.other.example _acme-challenge.deep.other.example two\n"
              "deep.other.example _acme-challenge.deep.other.example three\n"
              "shop.example _acme-challenge.shop.example four\n");
}

// Behaviour: Zones hold names by whole labels; a name in none of them is "missed"
TEST_F(Domain, ZonesHoldNamesByWholeLabels) {
    Start();
    Add("shop.example", "anna");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.workshop.example.", "v"), "missed");
    EXPECT_EQ(Edit("anna", "shop.example", "example.", "v"), "missed");
    EXPECT_EQ(Edit("anna", "", "", "v"), "value");
}

// Behaviour: Nobody writes into, or removes from, another user's zone
TEST_F(Domain, NobodyWritesIntoAnothersZone) {
    Start();
    Add("shop.example", "anna");
    Add("eve.example", "eve");
    EXPECT_EQ(Edit("eve", "shop.example", "_acme-challenge.shop.example.", "v"), "missed");
    EXPECT_EQ(Edit("eve", "", "_acme-challenge.shop.example.", "v"), "missed");
    EXPECT_EQ(Edit("anna", "shop.example", "_acme-challenge.shop.example.", "anna's"), "");
    EXPECT_EQ(Delete("eve", "shop.example", "_acme-challenge.shop.example. TXT  anna's"), "");
    EXPECT_EQ(Records(), "shop.example _acme-challenge.shop.example anna's\n");
}

// Behaviour: Names and values that are none, or would bring commands, are refused
TEST_F(Domain, UnreadableRecordsAreRefused) {
    Start();
    Add("shop.example", "anna");
    const std::string name = "_acme-challenge.shop.example.";
    EXPECT_EQ(Edit("anna", "shop.example", name, ""), "value");
    EXPECT_EQ(Edit("anna", "shop.example", name, std::string(256, 'x')), "value");
    EXPECT_EQ(Edit("anna", "shop.example", "a b.shop.example.", "v"), "value");
    EXPECT_EQ(Edit("../x", "shop.example", name, "v"), "value");
    EXPECT_EQ(Delete("anna", "shop.example", name + " TXT v"), "value");
    EXPECT_EQ(ErrorOf("sok=ok&rtype=a&func=domain.record.edit"), "value");
    EXPECT_EQ(Records(), "");
}

// Behaviour: Without a DNS back end a record is an error "dns", and there is nothing to delete
TEST_F(Domain, WithoutADnsBackEndNothingIsWrittenAndNothingIsThereToDelete) {
    Start({{"--dns-records-file", ""}});
    Add("shop.example", "anna");
    try {
        Ask("sok=ok&rtype=txt&func=domain.record.edit", {{"su", "anna"},
                                                         {"plid", "shop.example"},
                                                         {"name", "_acme-challenge.shop.example."},
                                                         {"value", "v"}});
        FAIL() << "a record is made nowhere";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "dns");
        EXPECT_NE(std::string(error.what()).find("no DNS back end is configured"), std::string::npos);
    }
    EXPECT_EQ(Delete("anna", "shop.example", "_acme-challenge.shop.example. TXT  v"), "");
    EXPECT_EQ(Ask("func=zelvek.domain.list").xml().GetNode("/doc/elem").Value("zone"), "off");
}

// Behaviour: All domains are listed, however many, a user's too; the query takes them page by page
TEST_F(Domain, AllAreListed) {
    Start();
    Stop();
    constexpr int kDomains = 1100;
    {
        SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE, 10000);
        SQLite::Transaction transaction(database);
        for (int i = 0; i < kDomains; ++i) {
            const std::string name = "d" + std::to_string(i) + ".example";
            database.exec("INSERT INTO domain (name, ascii, user_name) VALUES ('" + name + "', '" + name +
                          "', 'anna')");
        }
        transaction.commit();
    }
    Start();
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"domain", "list"}, {"domain", "list", "--user", "anna"}}) {
        const std::string listed = Zelvek(words).out;
        EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), kDomains + 1) << "with its head";
    }
    const auto page = Ask("func=zelvek.domain.list&user_name=anna&after=1000&limit=10");
    const auto elements = page.xml().GetNodes("/doc/elem");
    ASSERT_EQ(elements.size(), 10U);
    EXPECT_EQ(elements.front().Value("id"), "1001");
}

}  // namespace

}  // namespace zelvek::testing
