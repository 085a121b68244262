#include "challenges/publication.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::ParseForm;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

using Form = std::map<std::string, std::string>;

std::string DomainList(const std::vector<std::string>& names) {
    std::string xml = "<doc>";
    for (const std::string& name : names) xml += "<elem><name>" + name + "</name></elem>";
    return xml + "</doc>";
}

class Publication : public JobTest {
protected:
    void AnswerDomains(const std::vector<std::string>& names) {
        world.AlwaysPanel("func=domain&su=*", [xml = DomainList(names)](const std::string&) { return xml; });
    }

    void AnswerRecords() {
        world.AlwaysPanel("sok=ok&rtype=txt&*", [](const std::string&) { return "<doc/>"; });
    }

    void AnswerFiles() {
        world.AlwaysPanel("func=ambrin_challenge&*", [](const std::string&) { return "<doc/>"; });
    }

    std::vector<Form> RecordRequests() const {
        std::vector<Form> requests;
        for (const auto& call : world.calls())
            if (call.text.starts_with("sok=ok&rtype=txt")) requests.push_back(ParseForm(call.text));
        return requests;
    }

    Form MapFor(const std::string& type) {
        return {{"user", "ann"}, {"type", type}, {"domain", "example.org"}, {"thumbprint", "T"}};
    }

    std::list<ChallengeData> challenges{{"t1", "u1", "example.org", "a1", "c1"},
                                        {"t2", "u2", "mail.example.org", "a2", "c2"}};
};

// --- zones

class Zone : public Publication {};

// Behaviours of: Publication

// Behaviour: A zone is the longest suffix of a name that the user has as a domain, the name itself included
// Behaviour: A zone look-up is one query "func=domain&su=?", for an empty name too
TEST_F(Zone, IsTheLongestSuffixThatTheUserHas) {
    AnswerDomains({"org", "example.org", "other.example"});
    EXPECT_EQ(FindDomainName("a.b.example.org", "ann"), "example.org");
    EXPECT_THAT(Story(), ElementsAre("panel func=domain&su=ann"));
}

// Behaviour: A zone is the longest suffix of a name that ...
TEST_F(Zone, MayBeTheNameItself) {
    AnswerDomains({"example.org", "a.example.org"});
    EXPECT_EQ(FindDomainName("a.example.org", "ann"), "a.example.org");
}

// Behaviour: A zone is the longest suffix of a name that ...
TEST_F(Zone, MayBeATopLevelName) {
    AnswerDomains({"org"});
    EXPECT_EQ(FindDomainName("a.b.example.org", "ann"), "org");
}

// Behaviour: A name without a zone gives an empty text
TEST_F(Zone, OfAnotherNameIsNone) {
    AnswerDomains({"xample.org", "a.example.orgx", "a"});
    EXPECT_EQ(FindDomainName("a.example.org", "ann"), "");
}

// Behaviour: A zone look-up is one query "func=domain&su=?" ...
TEST_F(Zone, OfTheEmptyNameIsNoneButThePanelIsAsked) {
    AnswerDomains({""});
    EXPECT_EQ(FindDomainName("", "ann"), "");
    EXPECT_THAT(Story(), SizeIs(1));
}

// Behaviour: Quotes in a name cannot leave the XPath expression
TEST_F(Zone, NamesWithQuotesCannotLeaveTheExpression) {
    AnswerDomains({"example.org"});
    EXPECT_EQ(FindDomainName("x' or '1'='1", "ann"), "");
    EXPECT_EQ(FindDomainName("x\" or \"1\"=\"1", "ann"), "");
    EXPECT_EQ(FindDomainName("x'\"] | //elem[\"'.example.org", "ann"), "example.org");
}

// Behaviour: A name without a zone gives an empty text ...
TEST_F(Zone, StrayDotsGiveEmptyLabelsAndAnEnd) {
    AnswerDomains({"example.org"});
    EXPECT_EQ(FindDomainName("..example.org", "ann"), "example.org");
    EXPECT_EQ(FindDomainName("example.org.", "ann"), "");
    EXPECT_EQ(FindDomainName("...", "ann"), "");
}

// Behaviour: A user's name is a value of the query, nothing more
TEST_F(Zone, UserNameIsAValueOfTheQuery) {
    AnswerDomains({});
    FindDomainName("a.example", "ann&func=user.delete");
    EXPECT_THAT(Story(), ElementsAre("panel func=domain&su=ann%26func%3Duser.delete"));
}

// Behaviour: An error of the zone look-up reaches the ...
TEST_F(Zone, PanelErrorTravelsToTheCaller) {
    world.FailPanel("func=domain&su=ann", "missed", "no such user");
    EXPECT_THROW(FindDomainName("a.example", "ann"), vek_err::Error);
}

// --- answer files

class AnswerFile : public Publication {};

// Behaviour: An answer file is one query of action, user, token and content; the zone is never asked for
TEST_F(AnswerFile, EachIsOneQueryAndTheZoneIsNeverAsked) {
    AnswerFiles();
    Form map = MapFor("http");
    CreateAllChallenges(challenges, map);
    EXPECT_THAT(
        Story(),
        ElementsAre("panel func=ambrin_challenge&action=create&user_name=ann&file_name=t1&content=c1",
                    "panel func=ambrin_challenge&action=create&user_name=ann&file_name=t2&content=c2"));
    EXPECT_THAT(LogLines(), IsEmpty());
}

// Behaviour: A removal is the same query with another action
TEST_F(AnswerFile, RemovalIsTheSameQueryWithAnotherAction) {
    AnswerFiles();
    Form map = MapFor("http");
    DeleteAllChallenges(challenges, map);
    EXPECT_THAT(
        Story(),
        ElementsAre("panel func=ambrin_challenge&action=delete&user_name=ann&file_name=t1&content=c1",
                    "panel func=ambrin_challenge&action=delete&user_name=ann&file_name=t2&content=c2"));
}

// Behaviour: Any panel error of an answer file reaches the caller, "exists" too
TEST_F(AnswerFile, PanelErrorStopsTheLoopEvenOfTypeExists) {
    world.FailPanel("func=ambrin_challenge&*", "exists", "there");
    Form map = MapFor("http");
    EXPECT_THROW(CreateAllChallenges(challenges, map), vek_err::Error);
    EXPECT_THAT(Story(), SizeIs(1));
}

// Behaviour: Missing parameters are empty
TEST_F(AnswerFile, MissingParametersAreEmpty) {
    AnswerFiles();
    Challenge({{"type", "http"}});
    EXPECT_THAT(Story(), ElementsAre("panel func=ambrin_challenge&action=&user_name=&file_name=&content="));
}

// --- TXT records

class TxtRecord : public Publication {
protected:
    TxtRecord() { AnswerDomains({"example.org", "mail.example.org"}); }
};

// Behaviour: Every record of a job is sent to the zone of the job's main domain, which is looked up for each
// Behaviour: Creation and removal are traced as "Ambrin creating challenge" and "Ambrin deleteing challenge"
// Behaviour: A record's name is "_acme-challenge.", the ...
// Behaviour: A record's creation is "sok=ok&rtype=txt" ...
TEST_F(TxtRecord, EveryRecordGoesToTheZoneOfTheJobsMainDomain) {
    AnswerRecords();
    Form map = MapFor("dns");
    CreateAllChallenges(challenges, map);
    EXPECT_THAT(
        RecordRequests(),
        ElementsAre(
            ElementsAre(Pair("func", "domain.record.edit"), Pair("name", "_acme-challenge.example.org."),
                        Pair("plid", "example.org"), Pair("rtype", "txt"), Pair("sok", "ok"),
                        Pair("su", "ann"), Pair("value", "c1")),
            ElementsAre(Pair("func", "domain.record.edit"), Pair("name", "_acme-challenge.mail.example.org."),
                        Pair("plid", "example.org"), Pair("rtype", "txt"), Pair("sok", "ok"),
                        Pair("su", "ann"), Pair("value", "c2"))));
    EXPECT_THAT(world.Lines({"panel"}), SizeIs(4)) << "the zone is looked up for each";
    EXPECT_THAT(Traces(), ElementsAre("Ambrin creating challenge", "Ambrin creating challenge"));
}

// Behaviour: A record's removal names it by the panel's key: name, blank, TXT, two blanks, content
// Behaviour: Creation and removal are traced as "Ambrin ...
TEST_F(TxtRecord, RemovalNamesTheRecordByThePanelsKey) {
    AnswerRecords();
    Form map = MapFor("dns");
    DeleteAllChallenges(challenges, map);
    EXPECT_THAT(RecordRequests().at(0),
                ElementsAre(Pair("elid", "_acme-challenge.example.org. TXT  c1"),
                            Pair("func", "domain.record.delete"), Pair("plid", "example.org"),
                            Pair("rtype", "txt"), Pair("sok", "ok"), Pair("su", "ann"), Pair("value", "c1")));
    EXPECT_THAT(RecordRequests().at(1), Contains(Pair("elid", "_acme-challenge.mail.example.org. TXT  c2")));
    EXPECT_THAT(Traces(), ElementsAre("Ambrin deleteing challenge", "Ambrin deleteing challenge"));
}

// Behaviour: A record's creation is "sok=ok&rtype=txt" with func, name, plid, su and value
TEST_F(TxtRecord, QueryBeginsWithItsFixedText) {
    AnswerRecords();
    Form map = MapFor("dns");
    map["action"] = "create";
    map["record"] = "r.";
    map["content"] = "c";
    Challenge(map);
    EXPECT_THAT(
        Story(),
        ElementsAre(
            "panel func=domain&su=ann",
            "panel sok=ok&rtype=txt&func=domain.record.edit&name=r.&plid=example.org&su=ann&value=c"));
}

// Behaviour: A record that exists already is no error, "TXT record already exist" at level 4, on removal too
TEST_F(TxtRecord, RecordThatExistsAlreadyIsNoError) {
    world.FailPanel("sok=ok&rtype=txt&*", "exists", "there");
    world.AnswerPanel("sok=ok&rtype=txt&*", "<doc/>");
    Form map = MapFor("dns");
    EXPECT_NO_THROW(CreateAllChallenges(challenges, map));
    EXPECT_THAT(RecordRequests(), SizeIs(2));
    EXPECT_THAT(LogLines(), ElementsAre("9 Ambrin creating challenge", "4 TXT record already exist",
                                        "9 Ambrin creating challenge"));
}

// Behaviour: Any other panel error reaches the caller unchanged
TEST_F(TxtRecord, AnyOtherErrorStopsTheLoop) {
    world.FailPanel("sok=ok&rtype=txt&*", "dns", "server failure");
    Form map = MapFor("dns");
    EXPECT_THROW(CreateAllChallenges(challenges, map), vek_err::Error);
    EXPECT_THAT(RecordRequests(), SizeIs(1));
}

// Behaviour: An error of the zone look-up reaches the caller, "exists" too
TEST_F(TxtRecord, FailedZoneLookUpIsAnErrorEvenOfTypeExists) {
    world.AlwaysPanel("func=domain&su=*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("exists", "odd");
    });
    Form map = MapFor("dns");
    EXPECT_THROW(CreateAllChallenges(challenges, map), vek_err::Error);
    EXPECT_THAT(RecordRequests(), IsEmpty());
}

// Behaviour: A user without a zone sends an empty one and leaves the outcome to the panel
TEST_F(TxtRecord, UserWithoutTheZoneLeavesItsNameEmpty) {
    AnswerDomains({"other.example"});
    AnswerRecords();
    Form map = MapFor("dns");
    CreateAllChallenges(challenges, map);
    EXPECT_EQ(RecordRequests().at(0).at("plid"), "");
}

// Behaviour: An unknown action sends a request without a function
TEST_F(TxtRecord, UnknownActionGivesNoFunction) {
    AnswerRecords();
    Form map = MapFor("dns");
    map["action"] = "rename";
    Challenge(map);
    EXPECT_THAT(RecordRequests(),
                ElementsAre(ElementsAre(Pair("plid", "example.org"), Pair("rtype", "txt"), Pair("sok", "ok"),
                                        Pair("su", "ann"), Pair("value", ""))));
    EXPECT_THAT(LogLines(), IsEmpty());
}

// Behaviour: Every type but exactly "http" is published as a TXT record
TEST_F(TxtRecord, IsPublishedForEveryTypeButExactlyHttp) {
    AnswerRecords();
    for (const std::string type : {"dns", "", "HTTP", "http-01", "txt"}) {
        Form map = MapFor(type);
        map["action"] = "create";
        Challenge(map);
    }
    EXPECT_THAT(RecordRequests(), SizeIs(5));
}

// Behaviour: A record's name is "_acme-challenge.", the challenge's domain and a final dot
TEST_F(TxtRecord, NameIsAbsolute) {
    EXPECT_EQ(TxtRecordName(challenges.front()), "_acme-challenge.example.org.");
}

// --- the caller's map and the clean-up

// Behaviour: The loops leave the last challenge's values in the caller's map; removal sets no record name
TEST_F(Publication, LoopsLeaveTheLastChallengesValuesInTheCallersMap) {
    AnswerFiles();
    Form map = MapFor("http");
    CreateAllChallenges(challenges, map);
    EXPECT_THAT(map,
                ElementsAre(Pair("action", "create"), Pair("content", "c2"), Pair("domain", "example.org"),
                            Pair("record", "_acme-challenge.mail.example.org."), Pair("thumbprint", "T"),
                            Pair("token", "t2"), Pair("type", "http"), Pair("user", "ann")));
    DeleteAllChallenges(challenges, map);
    EXPECT_THAT(map,
                ElementsAre(Pair("action", "delete"), Pair("content", "c2"), Pair("domain", "example.org"),
                            Pair("elid", "_acme-challenge.mail.example.org. TXT  c2"),
                            Pair("record", "_acme-challenge.mail.example.org."), Pair("thumbprint", "T"),
                            Pair("token", "t2"), Pair("type", "http"), Pair("user", "ann")));
}

// Behaviour: The zone that was found stays out of the caller's map
TEST_F(Publication, ZoneStaysOutOfTheCallersMap) {
    AnswerDomains({"org"});
    AnswerRecords();
    Form map = MapFor("dns");
    CreateAllChallenges(challenges, map);
    EXPECT_EQ(map["domain"], "example.org");
}

// Behaviour: An empty list asks nothing and sets the action
TEST_F(Publication, EmptyListAsksNothingAndSetsTheAction) {
    Form map = MapFor("dns");
    CreateAllChallenges({}, map);
    EXPECT_EQ(map["action"], "create");
    DeleteAllChallenges({}, map);
    EXPECT_EQ(map["action"], "delete");
    EXPECT_THAT(world.calls(), IsEmpty());
}

class CleanUp : public Publication {
protected:
    CleanUp() {
        ambrin_data.challenges = "[]";
        ambrin_data.attempt_count = 3;
    }
};

// Behaviour: The clean-up empties the stored challenges, sets the attempts to 0 and removes everything; the
//   list stays
TEST_F(CleanUp, ResetsTheJobAndRemovesEverything) {
    AnswerFiles();
    CleenUpChallenges(MapFor("http"), challenges);
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_THAT(
        Story(),
        ElementsAre("panel func=ambrin_challenge&action=delete&user_name=ann&file_name=t1&content=c1",
                    "panel func=ambrin_challenge&action=delete&user_name=ann&file_name=t2&content=c2"));
    EXPECT_THAT(challenges, SizeIs(2));
}

// Behaviour: The clean-up resets the job even when a removal fails
TEST_F(CleanUp, ResetsTheJobEvenWhenARemovalFails) {
    world.FailPanel("func=ambrin_challenge&*", "io", "read-only file system");
    EXPECT_THROW(CleenUpChallenges(MapFor("http"), challenges), vek_err::Error);
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_THAT(Story(), SizeIs(1));
}

// Behaviour: The clean-up resets the job even when a removal ...
TEST_F(CleanUp, OfRecordsToleratesNoErrorButExists) {
    AnswerDomains({"example.org"});
    world.FailPanel("sok=ok&rtype=txt&*", "missed", "no such zone");
    EXPECT_THROW(CleenUpChallenges(MapFor("dns"), challenges), vek_err::Error);
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

}  // namespace
