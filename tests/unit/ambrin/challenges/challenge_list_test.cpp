#include "challenges/challenge_list.h"

#include "encoding/json_values.h"
#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::FakeDigestText;
using ambrin_test::FakeJwk;
using ambrin_test::JobTest;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

std::string OfferOf(const std::string& type, const std::string& n) {
    return R"({"type":")" + type + R"(","token":"token)" + n + R"(","url":"https://ca.test/challenge/)" + n +
           "\"}";
}

std::string AuthorizationOf(const std::string& domain, const std::string& offers) {
    return R"({"identifier":{"type":"dns","value":")" + domain + R"("},"status":"pending","challenges":[)" +
           offers + "]}";
}

const std::string kThreeOffers =
    OfferOf("tls-alpn-01", "0") + "," + OfferOf("http-01", "1") + "," + OfferOf("dns-01", "2");

class ChallengeList : public JobTest {
protected:
    ChallengeList() {
        StoreAccount();
        AnswerDigests();
        ambrin_data.user_name = "ann";
        ambrin_data.domain = "main.example";
        ambrin_data.check_type = "http";
        thumbprint = FakeDigestText(FakeJwk(ambrin_data.acmekey));
    }

    bool Prepare(const std::string& authorizations) {
        ambrin_data.challenges = authorizations;
        return PrepareChallengesList(challenge_params, challenges);
    }

    std::string thumbprint;
    std::map<std::string, std::string> challenge_params;
    std::list<ChallengeData> challenges;
};

// Behaviours of: Challenge list

// Behaviour: An http job publishes the key authorization, with one digest in all
TEST_F(ChallengeList, HttpJobAnswersWithTheKeyAuthorization) {
    ASSERT_TRUE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]\n"));
    ASSERT_THAT(challenges, SizeIs(1));
    EXPECT_EQ(challenges.front().token, "token1");
    EXPECT_EQ(challenges.front().url, "https://ca.test/challenge/1");
    EXPECT_EQ(challenges.front().domain, "a.example");
    EXPECT_EQ(challenges.front().key_authz, "token1." + thumbprint);
    EXPECT_EQ(challenges.front().content, challenges.front().key_authz);
    EXPECT_THAT(Story(), SizeIs(1)) << "one digest: the thumbprint's";
}

// Behaviour: A dns job publishes the key authorization's digest
TEST_F(ChallengeList, DnsJobAnswersWithItsDigest) {
    ambrin_data.check_type = "dns";
    ASSERT_TRUE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]\n"));
    ASSERT_THAT(challenges, SizeIs(1));
    EXPECT_EQ(challenges.front().token, "token2");
    EXPECT_EQ(challenges.front().key_authz, "token2." + thumbprint);
    EXPECT_EQ(challenges.front().content, FakeDigestText("token2." + thumbprint));
}

// Behaviour: The parameters are user, thumbprint, type and main domain of the job
TEST_F(ChallengeList, ParametersComeFromTheJob) {
    ASSERT_TRUE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]"));
    EXPECT_THAT(challenge_params, ElementsAre(Pair("domain", "main.example"), Pair("thumbprint", thumbprint),
                                              Pair("type", "http"), Pair("user", "ann")));
}

// Behaviour: The thumbprint is taken of the compact key
TEST_F(ChallengeList, ThumbprintIsTakenOfTheCompactKey) {
    Prepare("[]");
    EXPECT_THAT(world.Lines({"child", "input"}), ElementsAre("child: " + ambrin_test::kDigestCommand,
                                                             "input: " + FakeJwk(ambrin_data.acmekey)));
}

// Behaviour: Challenges keep the order of the authorizations, each with its own domain
TEST_F(ChallengeList, AuthorizationsKeepTheirOrderAndTheirDomains) {
    ASSERT_TRUE(Prepare("[" + AuthorizationOf("example.org", OfferOf("http-01", "1")) + "," +
                        AuthorizationOf("mail.example.org", OfferOf("http-01", "2")) + "]"));
    EXPECT_THAT(challenges, ElementsAre(Field(&ChallengeData::domain, "example.org"),
                                        Field(&ChallengeData::domain, "mail.example.org")));
}

// Behaviour: A job without key header or stored authorizations has no list; map and list stay untouched,
//   nothing is run
TEST_F(ChallengeList, JobWithoutKeyHeaderOrAuthorizationsHasNone) {
    EXPECT_FALSE(Prepare(""));
    ambrin_data.modulus.clear();
    EXPECT_FALSE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]"));
    EXPECT_THAT(challenge_params, IsEmpty());
    EXPECT_THAT(challenges, IsEmpty());
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: A key header, or authorizations, that the JSON library gives up on have no list and are logged
TEST_F(ChallengeList, KeyHeaderThatTheLibraryGivesUpOnHasNone) {
    ambrin_data.modulus = std::string(5000, '[');
    EXPECT_FALSE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,acme_response_error," + ambrin_data.modulus));
    EXPECT_THAT(challenge_params, IsEmpty());
}

// Behaviour: A key header, or authorizations, that the ...
TEST_F(ChallengeList, AuthorizationsThatTheLibraryGivesUpOnHaveNone) {
    EXPECT_FALSE(Prepare(std::string(5000, '[')));
    EXPECT_THAT(JobLog(), SizeIs(1));
    EXPECT_THAT(challenge_params, IsEmpty());
    EXPECT_THAT(challenges, IsEmpty());
}

// Behaviour: The thumbprint is made before the stored authorizations are parsed
TEST_F(ChallengeList, ThumbprintIsMadeBeforeTheAuthorizationsAreParsed) {
    EXPECT_FALSE(Prepare(std::string(5000, '[')));
    EXPECT_THAT(Story(), ElementsAre("child " + ambrin_test::kDigestCommand));
    ambrin_data.log.clear();
    world.AlwaysChild(ambrin_test::kDigestCommand, [](const std::string&) {
        return vek_double::ChildAnswer{"", 1};
    });
    EXPECT_THROW(Prepare(std::string(5000, '[')), vek_err::Error);
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: Stored authorizations end at their first NUL byte, inside a JSON string too; an escaped one is
//   a character of the string
TEST_F(ChallengeList, NulByteInsideAStringEndsTheAuthorizations) {
    const std::string first = AuthorizationOf("a.example", OfferOf("http-01", "1"));
    const std::string nul(1, '\0');
    EXPECT_TRUE(Prepare("[" + first + "," + AuthorizationOf("b" + nul, OfferOf("http-01", "2")) + "]"));
    EXPECT_THAT(challenges, ElementsAre(Field(&ChallengeData::token, "token1")));
    challenges.clear();
    EXPECT_TRUE(Prepare("[" + AuthorizationOf("b\\u0000", OfferOf("http-01", "2")) + "," + first + "]"));
    EXPECT_THAT(challenges, ElementsAre(Field(&ChallengeData::domain, "b" + nul),
                                        Field(&ChallengeData::domain, "a.example")));
}

// Behaviour: Broken JSON is a list without challenges
TEST_F(ChallengeList, BrokenJsonIsAListWithoutChallenges) {
    for (const std::string authorizations :
         {"not json", "{", "7", "\"text\"", "[]", "{}", "null", "[null]", "[7,\"x\"]"})
        EXPECT_TRUE(Prepare(authorizations)) << authorizations;
    EXPECT_THAT(challenges, IsEmpty());
}

// Behaviour: Broken JSON is a list without challenges ...
TEST_F(ChallengeList, BrokenKeyHeaderGivesTheThumbprintOfNoKey) {
    for (const std::string modulus : {"not json", "[]", "7", "{}", R"({"jwk":null})"}) {
        ambrin_data.modulus = modulus;
        EXPECT_TRUE(Prepare("[]")) << modulus;
        EXPECT_EQ(challenge_params["thumbprint"], FakeDigestText("null"));
    }
}

// Behaviour: The list is appended to
TEST_F(ChallengeList, ListIsAppendedTo) {
    challenges.push_back({"earlier", "", "", "", ""});
    ASSERT_TRUE(Prepare("[" + AuthorizationOf("a.example", kThreeOffers) + "]"));
    EXPECT_THAT(challenges,
                ElementsAre(Field(&ChallengeData::token, "earlier"), Field(&ChallengeData::token, "token1")));
}

// Behaviour: A digest that fails travels to the caller; the records before it stay in the list
TEST_F(ChallengeList, DigestThatFailsTravelsToTheCallerWithTheRecordsBeforeIt) {
    ambrin_data.check_type = "dns";
    world.FailAt("child", 3, vek_double::Failure::kError);
    EXPECT_THROW(
        Prepare("[" + AuthorizationOf("a.example", OfferOf("dns-01", "1") + "," + OfferOf("dns-01", "2")) +
                "]"),
        vek_err::Error);
    EXPECT_THAT(challenges, SizeIs(1));
    EXPECT_THAT(challenge_params, IsEmpty());
}

// Behaviour: Elements without challenges, an error object among them, are skipped
TEST_F(ChallengeList, ErrorObjectAmongTheAuthorizationsIsSkipped) {
    ASSERT_TRUE(
        Prepare(R"([{"type":"error","status":404},)" + AuthorizationOf("a.example", kThreeOffers) + "]"));
    EXPECT_THAT(challenges, SizeIs(1));
}

class Selection : public ChallengeList {
protected:
    std::vector<std::string> TokensFor(const std::string& check_type, const std::string& offers) {
        challenges.clear();
        GetChallengesList({AuthorizationOf("a.example", offers)}, challenges, check_type, "T");
        std::vector<std::string> tokens;
        for (const ChallengeData& challenge : challenges) tokens.push_back(challenge.token);
        return tokens;
    }
};

// Behaviour: A challenge is selected when its type contains the check type
TEST_F(Selection, IsASubstringSearch) {
    EXPECT_THAT(TokensFor("http", kThreeOffers), ElementsAre("token1"));
    EXPECT_THAT(TokensFor("dns", kThreeOffers), ElementsAre("token2"));
    EXPECT_THAT(TokensFor("-01", kThreeOffers), ElementsAre("token0", "token1", "token2"));
    EXPECT_THAT(TokensFor("HTTP", kThreeOffers), IsEmpty());
}

// Behaviour: An empty check type selects every challenge
TEST_F(Selection, EmptyCheckTypeSelectsEverything) {
    EXPECT_THAT(TokensFor("", kThreeOffers), ElementsAre("token0", "token1", "token2"));
    EXPECT_THAT(TokensFor("", R"({"token":"t"},7,null)"), ElementsAre("t", "", ""));
}

// Behaviour: Every matching challenge of an authorization is taken
TEST_F(Selection, EveryMatchingChallengeIsTaken) {
    EXPECT_THAT(TokensFor("http", OfferOf("http-01", "1") + "," + OfferOf("http-02", "2")),
                ElementsAre("token1", "token2"));
}

// Behaviour: Only exactly "dns" publishes the digest
TEST_F(Selection, OnlyExactlyDnsPublishesTheDigest) {
    TokensFor("dns-01", kThreeOffers);
    ASSERT_THAT(challenges, SizeIs(1));
    EXPECT_EQ(challenges.front().content, "token2.T");
    EXPECT_THAT(Story(), IsEmpty());
}

// Behaviour: Members of other types are no errors in a challenge
TEST_F(Selection, MembersOfOtherTypesAreNoErrors) {
    EXPECT_THAT(TokensFor("http", R"({"type":["http-01"]},{"type":7},"http-01",["http-01"],null)"),
                IsEmpty());
    EXPECT_THAT(
        TokensFor("http", R"({"type":"http-01","token":["t"],"url":{"a":1}},{"type":"http-01","token":7})"),
        ElementsAre("", "7"));
    EXPECT_EQ(challenges.front().url, "");
}

// Behaviour: A missing or odd identifier gives an empty domain
TEST_F(Selection, AuthorizationWithoutUsableIdentifierGivesAnEmptyDomain) {
    for (const std::string identifier : {"", R"("identifier":"a.example",)", R"("identifier":["a.example"],)",
                                         R"("identifier":{"value":["a"]},)", R"("identifier":{},)"}) {
        challenges.clear();
        GetChallengesList({"{" + identifier + R"("challenges":[)" + OfferOf("http-01", "1") + "]}"},
                          challenges, "http", "T");
        ASSERT_THAT(challenges, SizeIs(1)) << identifier;
        EXPECT_EQ(challenges.front().domain, "") << identifier;
    }
}

// Behaviour: A text that does not parse has no challenges, silently, and does not repeat the one before it
TEST_F(Selection, TextsWithoutChallengesAreSilent) {
    GetChallengesList({"not json", "", "[]", "7", R"({"challenges":"http-01"})", R"({"challenges":7})", "{}"},
                      challenges, "http", "T");
    EXPECT_THAT(challenges, IsEmpty());
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: An authorization text that breaks off has no challenges, not those read so far
TEST_F(Selection, TextThatBreaksOffHasNone) {
    const std::string whole = AuthorizationOf("a.example", OfferOf("http-01", "1"));
    GetChallengesList({whole.substr(0, whole.size() - 1), whole.substr(0, whole.size() - 1) + R"(,"x)"},
                      challenges, "http", "T");
    EXPECT_THAT(challenges, IsEmpty());
}

// Behaviour: A text that does not parse has no challenges ...
TEST_F(Selection, BrokenTextDoesNotRepeatTheOneBeforeIt) {
    GetChallengesList({AuthorizationOf("a.example", OfferOf("http-01", "1")), "not json"}, challenges, "http",
                      "T");
    EXPECT_THAT(challenges, SizeIs(1));
}

// Behaviour: Every text and every challenge is traced
TEST_F(Selection, TracesEveryTextAndEveryChallenge) {
    const std::string text = AuthorizationOf("a.example", kThreeOffers);
    GetChallengesList({text}, challenges, "http", "T");
    EXPECT_THAT(Traces(), ElementsAre("list val '" + text + "'",
                                      "domain 'a.example'\ntoken token1\nurl https://ca.test/challenge/1"));
}

// Behaviour: Every element with challenges gives its styled text, objects in their own order
// Behaviour: Elements without challenges, an error object ...
TEST(AuthorizationTexts, EveryElementWithChallengesGivesItsStyledText) {
    std::list<std::string> texts{"earlier"};
    const Json::Value value =
        ParseAny(R"([{"challenges":[]},{"status":404},7,null,["challenges"],{"challenges":null}])");
    ParseChallengeJson(value, texts);
    EXPECT_THAT(texts, ElementsAre("earlier", value[0].toStyledString(), value[5].toStyledString()));
}

// Behaviour: Every element with challenges gives its styled ...
TEST(AuthorizationTexts, ObjectsAreWalkedInTheirOwnOrderAndScalarsNotAtAll) {
    std::list<std::string> texts;
    ParseChallengeJson(ParseAny(R"({"b":{"challenges":1},"a":{"challenges":2}})"), texts);
    ASSERT_THAT(texts, SizeIs(2));
    EXPECT_THAT(texts.front(), testing::HasSubstr("2"));
    for (const std::string scalar : {"7", "\"challenges\"", "null", "true", "1.5"})
        ParseChallengeJson(ParseAny(scalar), texts);
    EXPECT_THAT(texts, SizeIs(2));
}

}  // namespace
