#include "acme/response.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

AcmeResponse WithBody(int status, const std::string& body) {
    return {status, "HTTP/1.1 200 OK\r\nContent-Type: x\r\n\r\n" + body};
}

std::string Fragment(const std::string& code, const std::string& details) {
    return "<p><b>Return code:</b> " + code + "</p></br><p><b>Details:</b> " + details + "</p>";
}

// Behaviours of: Responses

// Behaviour: A raw response is taken apart into headers, body and the body's JSON
// Behaviour: A line without a colon is no header
TEST(Response, HeadersBodyAndJsonAreTakenApart) {
    const AcmeResponse response(
        200, "HTTP/1.1 200 OK\r\nLocation: acct-1\r\nReplay-Nonce: abc\r\n\r\n{\"status\":\"valid\"}\r\n");
    EXPECT_EQ(response.code, 200);
    EXPECT_THAT(response.headers, ElementsAre(Pair("location", "acct-1"), Pair("replay-nonce", "abc")));
    EXPECT_EQ(response.body, R"({"status":"valid"})");
    ASSERT_TRUE(response.json.isObject());
    EXPECT_EQ(response.json["status"].asString(), "valid");
}

// Behaviour: Lines may end with a bare line feed
// Behaviour: A line without a colon is no header ...
TEST(Response, BareLineFeedsEndLinesToo) {
    const AcmeResponse response(200, "HTTP/1.1 200 OK\nLocation: acct-1\n\nbody\n\nsecond part\n");
    EXPECT_THAT(response.headers, ElementsAre(Pair("location", "acct-1")));
    EXPECT_EQ(response.body, "body\n\nsecond part");
}

// Behaviour: Blank lines ahead of a response do not count
TEST(Response, BlankLinesAheadOfEverythingAreNone) {
    const AcmeResponse response(200, "\r\n \nHTTP/1.1 200 OK\nLocation: acct-1\n\nbody");
    EXPECT_THAT(response.headers, ElementsAre(Pair("location", "acct-1")));
    EXPECT_EQ(response.body, "body");
}

// Behaviour: Without a blank line there are headers only: an empty body, null JSON
TEST(Response, WithoutBlankLineThereIsNoBody) {
    const AcmeResponse response(204, "HTTP/1.1 204 No Content\r\nReplay-Nonce: abc\r\n\r\n");
    EXPECT_THAT(response.headers, ElementsAre(Pair("replay-nonce", "abc")));
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(response.json.isNull());
}

// Behaviour: Header names are stored in lower case, the last occurrence wins
TEST(Response, RepeatedHeaderKeepsItsLastValueWhateverTheLettersCase) {
    const AcmeResponse response(200, "s\nX-Test: one\nx-tEST: two\nX-TEST: three\n\n");
    EXPECT_THAT(response.headers, ElementsAre(Pair("x-test", "three")));
}

// Behaviour: A header is cut at its first colon; its value is trimmed and keeps inner colons
TEST(Response, OnlyTheFirstColonSeparatesNameAndValue) {
    const AcmeResponse response(200, "s\nX-Test: a: b\nLocation:https://ca.test:14000/x\nEmpty:\n\n");
    EXPECT_THAT(response.headers, ElementsAre(Pair("empty", ""), Pair("location", "https://ca.test:14000/x"),
                                              Pair("x-test", "a: b")));
}

// Behaviour: A header is cut at its first colon; its value ...
TEST(Response, ValuesAreTrimmed) {
    EXPECT_EQ(HeaderOf({200, "s\nX-Test: \t value \t\r\n\r\n"}, "x-test"), "value");
}

// Behaviour: Any text yields a record, an empty one too
TEST(Response, EmptyTextIsAnEmptyRecord) {
    const AcmeResponse response(-1, "");
    EXPECT_EQ(response.code, -1);
    EXPECT_THAT(response.headers, IsEmpty());
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(response.json.isNull());
}

// Behaviour: The body is trimmed of white space around it
TEST(Response, WhiteSpaceAroundTheBodyIsRemoved) {
    EXPECT_EQ(WithBody(200, " \r\n\t text \n with lines \r\n\r\n").body, "text \n with lines");
}

// Behaviour: A body that is no JSON is no failure
TEST(Response, BodyThatIsNoJsonLeavesNoObject) {
    for (const std::string body : {"not json", "<html></html>", "{\"a\":", "-----BEGIN CERTIFICATE-----"})
        EXPECT_FALSE(WithBody(200, body).json.isObject() && WithBody(200, body).json.isMember("error"))
            << body;
}

// Behaviour: A body that breaks off keeps the members read so far
TEST(Response, BodyThatBreaksOffKeepsTheMembersReadSoFar) {
    EXPECT_EQ(WithBody(200, R"({"status":"valid","certif)").json["status"].asString(), "valid");
    EXPECT_TRUE(IsFailed(WithBody(200, R"({"error":{"status":403},"x)")));
}

// Behaviour: A body that is no JSON is no failure ...
TEST(Response, BodiesOfEveryJsonTypeAreNoErrors) {
    EXPECT_TRUE(WithBody(200, "[1,2]").json.isArray());
    EXPECT_TRUE(WithBody(200, "[\"error\"]").json.isArray());
    for (const std::string body : {"\"error\"", "7", "null", "true", "[[]]"})
        EXPECT_FALSE(IsFailed(WithBody(200, body))) << body;
}

// Behaviour: A body that is nested too deep has null JSON and ends nothing
TEST(Response, DeepNestingLeavesNullAndTheBodyAsItCame) {
    const std::string deep(100000, '[');
    const AcmeResponse response = WithBody(200, deep);
    EXPECT_TRUE(response.json.isNull());
    EXPECT_EQ(response.body, deep);
    EXPECT_FALSE(IsFailed(response));
}

// Behaviour: NUL bytes, invalid UTF-8, megabytes and thousands of headers are kept
TEST(Response, NulInvalidUtf8AndHugeBodiesAreKept) {
    const std::string binary("\0\xFF\xC3{\"error\":1}\0", 15);
    EXPECT_EQ(WithBody(200, "a" + binary + "b").body, "a" + binary + "b");
    const std::string big = "{\"a\":\"" + std::string(3 << 20, 'x') + "\"}";
    const AcmeResponse response = WithBody(200, big);
    EXPECT_EQ(response.body, big);
    EXPECT_EQ(response.json["a"].asString().size(), std::size_t{3} << 20);
}

// Behaviour: NUL bytes, invalid UTF-8, megabytes and thousands ...
TEST(Response, ManyHeaderLinesOfABigResponseAreRead) {
    std::string raw = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 2000; ++i) raw += "X-" + std::to_string(i) + ": v\r\n";
    const AcmeResponse response(200, raw + "\r\n" + std::string(3 << 20, 'x'));
    EXPECT_THAT(response.headers, SizeIs(2000));
    EXPECT_THAT(response.body, SizeIs(3 << 20));
}

// Behaviour: A header that is absent reads as the default that was asked for
TEST(Response, HeaderThatIsAbsentGivesTheOtherText) {
    const AcmeResponse response(200, "s\nEmpty:\n\n");
    EXPECT_EQ(HeaderOf(response, "retry-after", "1"), "1");
    EXPECT_EQ(HeaderOf(response, "location"), "");
    EXPECT_EQ(HeaderOf(response, "empty", "1"), "");
}

// Behaviour: A response succeeds when its status is from 1 to 399
TEST(Success, IsAStatusFrom1To399) {
    for (const int status : {1, 100, 200, 201, 204, 301, 399})
        EXPECT_FALSE(IsFailed(WithBody(status, "{}"))) << status;
    for (const int status : {-1, 0, 400, 404, 409, 500, 600})
        EXPECT_TRUE(IsFailed(WithBody(status, "{}"))) << status;
}

// Behaviour: A JSON object with a member "error" fails at any status; an inner "error" and other JSON types
//   do not
TEST(Success, ObjectWithAMemberErrorIsAFailureAtAnyStatus) {
    EXPECT_TRUE(IsFailed(WithBody(200, R"({"error":{"status":403}})")));
    EXPECT_TRUE(IsFailed(WithBody(200, R"({"status":"valid","error":null})")));
    EXPECT_FALSE(IsFailed(WithBody(200, R"({"inner":{"error":1}})")));
}

std::string ErrorOf(int status, const std::string& body) {
    AcmeResponse response = WithBody(status, body);
    return GetACMEError(response);
}

// Behaviour: An error's text is a fragment with return code and details, "</br>" included
TEST(ErrorText, OfAProblemDocument) {
    EXPECT_EQ(
        ErrorOf(400, R"({"type":"urn:ietf:params:acme:error:malformed","detail":"bad nonce","status":400})"),
        Fragment("400", "bad nonce"));
}

// Behaviour: The inner object of a member "error" is the one that counts
TEST(ErrorText, OfAnInnerError) {
    EXPECT_EQ(ErrorOf(200, R"({"status":"invalid","detail":"outer","error":{"status":403,"detail":"x"}})"),
              Fragment("403", "x"));
}

// Behaviour: A member "error" of any type is the one that counts; status and detail beside it do not
TEST(ErrorText, OfAnInnerErrorThatIsNoObjectIsZeroAndEmpty) {
    for (const std::string error : {R"("x")", "null", "7", R"(["x"])", "{}"})
        EXPECT_EQ(ErrorOf(200, R"({"error":)" + error + R"(,"status":7,"detail":"d"})"), Fragment("0", ""))
            << error;
}

// Behaviour: A body that is no object is told with the response's status and as it stands
TEST(ErrorText, OfABodyThatIsNoObjectIsStatusAndBody) {
    EXPECT_EQ(ErrorOf(502, "<html>Bad Gateway</html>"), Fragment("502", "<html>Bad Gateway</html>"));
    EXPECT_EQ(ErrorOf(503, "[\"busy\"]"), Fragment("503", "[\"busy\"]"));
    EXPECT_EQ(ErrorOf(500, ""), Fragment("500", ""));
    AcmeResponse none(-1, "");
    EXPECT_EQ(GetACMEError(none), Fragment("-1", ""));
}

// Behaviour: A status that is a word stands as it is
TEST(ErrorText, StatusThatIsAWordStandsAsItIs) {
    EXPECT_EQ(ErrorOf(200, R"({"status":"invalid"})"), Fragment("invalid", ""));
}

// Behaviour: An absent or null status is 0
TEST(ErrorText, AbsentOrNullStatusIsZero) {
    EXPECT_EQ(ErrorOf(400, R"({"detail":"x"})"), Fragment("0", "x"));
    EXPECT_EQ(ErrorOf(400, R"({"status":null,"detail":"x"})"), Fragment("0", "x"));
}

// Behaviour: Members of other types are no errors: a number read as text is its text, an array or an object
//   empty
TEST(ErrorText, MembersOfOtherTypesAreNoErrors) {
    EXPECT_EQ(ErrorOf(400, R"({"status":[400],"detail":{"a":1}})"), Fragment("", ""));
    EXPECT_EQ(ErrorOf(400, R"({"status":400.9,"detail":7})"), Fragment("400", "7"));
    EXPECT_EQ(ErrorOf(400, R"({"status":true,"detail":false})"), Fragment("1", "false"));
    EXPECT_EQ(ErrorOf(400, R"({"error":"text"})"), Fragment("0", ""));
    EXPECT_EQ(ErrorOf(400, R"({"error":["text"]})"), Fragment("0", ""));
    EXPECT_NO_THROW(ErrorOf(400, R"({"status":1e300,"detail":null})"));
    EXPECT_NO_THROW(ErrorOf(400, R"({"status":18446744073709551615})"));
}

// Behaviour: Reading a value never inserts a member into it
TEST(ErrorText, ReadingLeavesTheResponseAsItWas) {
    AcmeResponse response = WithBody(400, R"({"title":"x"})");
    GetACMEError(response);
    EXPECT_EQ(response.json.getMemberNames(), std::vector<std::string>{"title"});
}

class TryParse : public JobTest {
protected:
    bool Parse(const std::string& text) { return TryParseACMEResponse(reader, out, text); }

    Json::Reader reader;
    Json::Value out;
};

// Behaviour: Stored JSON is parsed up to its first NUL ...
TEST_F(TryParse, GoodTextIsParsed) {
    EXPECT_TRUE(Parse(R"({"jwk":{"n":"x"}})"));
    EXPECT_EQ(out["jwk"]["n"].asString(), "x");
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: Stored text that is no JSON is no failure and is not logged
TEST_F(TryParse, TextThatIsNoJsonIsNoFailure) {
    EXPECT_TRUE(Parse("not json"));
    EXPECT_TRUE(Parse(""));
    EXPECT_TRUE(Parse("{\"a\":"));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_THAT(LogLines(), IsEmpty());
}

// Behaviour: Stored JSON is parsed up to its first NUL ...
TEST_F(TryParse, CommentsAreKept) {
    EXPECT_TRUE(Parse("// the job's key\n{}"));
    EXPECT_EQ(out.getComment(Json::commentBefore), "// the job's key");
}

// Behaviour: Stored JSON is parsed up to its first NUL byte, comments kept
TEST_F(TryParse, TextEndsAtItsFirstNulByte) {
    EXPECT_TRUE(Parse(std::string("[1]\0[", 5)));
    ASSERT_TRUE(out.isArray());
    EXPECT_EQ(out.size(), 1U);
}

// Behaviour: A NUL byte ends a stored text inside a JSON string too
TEST_F(TryParse, TextEndsAtANulByteInsideAString) {
    const std::string nul(1, '\0');
    EXPECT_TRUE(Parse(R"({"jwk":{"n":"x"},"alg":"RS)" + nul + R"(256"})"));
    EXPECT_EQ(out["jwk"]["n"].asString(), "x");
    EXPECT_TRUE(out["alg"].isNull()) << "a string that breaks off is none";
}

// Behaviour: Stored text that the JSON library gives up on is a failure: traced, and logged as processing /
//   acme_response_error with the text
TEST_F(TryParse, TextThatTheLibraryGivesUpOnIsAFailureInTheLogs) {
    const std::string deep(2000, '[');
    EXPECT_FALSE(Parse(deep));
    EXPECT_THAT(JobLog(), ElementsAre("processing,acme_response_error," + deep));
    ASSERT_THAT(Traces(), SizeIs(1));
    EXPECT_TRUE(Traces()[0].starts_with("error while parsing ACME resp: '" + deep + "'\nErrors '"))
        << Traces()[0];
    EXPECT_TRUE(Traces()[0].ends_with("'")) << Traces()[0];
}

// Behaviour: That failure reaches the job log with the trace off
TEST_F(TryParse, FailureReachesTheJobLogWithTheTraceOff) {
    world.SetLogLevel(8);
    EXPECT_FALSE(Parse(std::string(2000, '[')));
    EXPECT_THAT(JobLog(), SizeIs(1));
    EXPECT_THAT(LogLines(), IsEmpty());
}

}  // namespace
