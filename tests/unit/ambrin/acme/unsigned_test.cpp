#include "acme/unsigned.h"

#include "support/job_test.h"
#include "vek/proc.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::kNewNonce;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDirectory = AMBRIN_DIRECTORY_URL;

class UnsignedRequest : public JobTest {
protected:
    AcmeResponse Get(const std::string& url) {
        params.url = url;
        return AcmeGet(params);
    }
};

// Behaviours of: Unsigned requests

// Behaviour: An unsigned request is one GET without any header of the program's
TEST_F(UnsignedRequest, IsOneGetWithoutHeadersOfOurOwn) {
    world.AnswerHttp("GET https://ca.test/x", JsonAnswer(200, "{}", "Replay-Nonce: n\r\n"));
    const AcmeResponse response = Get("https://ca.test/x");
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.headers.at("replay-nonce"), "n");
    EXPECT_TRUE(response.json.isObject());
    EXPECT_THAT(world.Lines(), ElementsAre("http: GET https://ca.test/x"));
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: A failed exchange gives status -1 and one http_query_error entry: reason, "<br>url: " and URL
TEST_F(UnsignedRequest, ExchangeThatFailsIsLoggedOnceWithItsUrl) {
    params.error_name = "order_failed";
    world.FailHttp("GET https://ca.test/x", "ca.test: connection refused");
    const AcmeResponse response = Get("https://ca.test/x");
    EXPECT_EQ(response.code, -1);
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(response.json.isNull());
    EXPECT_THAT(response.headers, IsEmpty());
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,http_query_error,ca.test: connection refused<br>url: https://ca.test/x"));
}

// Behaviour: Every status is a result
// Behaviour: A failed response is logged as acme_request_error, whatever error name the request bears, and
//   returned
TEST_F(UnsignedRequest, RefusalIsLoggedUnderItsFixedName) {
    params.error_name = "order_failed";
    world.AnswerHttp("*", JsonAnswer(500, R"({"status":500,"detail":"sorry"})"));
    EXPECT_EQ(Get("https://ca.test/x").code, 500);
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 500</p></br><p><b>Details:</b> "
                            "sorry</p>"));
}

// Behaviour: A failed response is logged as acme_request_error ...
TEST_F(UnsignedRequest, ErrorObjectWithAGoodStatusIsLoggedAndReturned) {
    world.AnswerHttp("*", JsonAnswer(200, R"({"error":{"status":403,"detail":"x"}})"));
    EXPECT_EQ(Get("https://ca.test/x").code, 200);
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> "
                            "x</p>"));
}

// Behaviour: An interruption is no failed exchange
TEST_F(UnsignedRequest, InterruptionIsNoFailedExchange) {
    world.FailAt("http", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(Get("https://ca.test/x"), vek_proc::Interrupted);
    EXPECT_THAT(JobLog(), IsEmpty());
}

class Directory : public JobTest {
protected:
    void AnswerDirectory(const vek_double::HttpAnswer& answer) {
        world.AnswerHttp("GET " + kDirectory, answer);
    }

    void ExpectOldDirectory() { EXPECT_EQ(params.directory["newNonce"].asString(), kNewNonce); }
};

// Behaviour: The directory is fetched from its constant https address, which stays in the parameters
// Behaviour: A good answer replaces the directory, also when it is no object or no JSON
TEST_F(Directory, IsFetchedFromItsConstantAddress) {
    EXPECT_TRUE(kDirectory.starts_with("https://"));
    AnswerDirectory(JsonAnswer(200, R"({"newOrder":"https://other.test/order"})"));
    EXPECT_EQ(GetDirectory(params).code, 200);
    EXPECT_EQ(params.directory["newOrder"].asString(), "https://other.test/order");
    EXPECT_FALSE(params.directory.isMember("newNonce"));
    EXPECT_EQ(params.url, kDirectory);
    EXPECT_THAT(world.Lines(), ElementsAre("http: GET " + kDirectory));
}

// Behaviour: A refusal, an error object or a failed exchange leaves the directory alone
TEST_F(Directory, RefusalKeepsTheOldOne) {
    AnswerDirectory(JsonAnswer(500, R"({"newOrder":"x"})"));
    EXPECT_EQ(GetDirectory(params).code, 500);
    ExpectOldDirectory();
    EXPECT_THAT(
        JobLog(),
        ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 0</p></br><p><b>Details:</b> </p>"));
}

// Behaviour: A refusal, an error object or a failed exchange leaves the directory ...
TEST_F(Directory, ErrorObjectKeepsTheOldOne) {
    AnswerDirectory(JsonAnswer(200, R"({"error":"maintenance"})"));
    EXPECT_EQ(GetDirectory(params).code, 200);
    ExpectOldDirectory();
}

// Behaviour: A refusal, an error object or a failed exchange leaves the directory ...
TEST_F(Directory, FailedExchangeKeepsTheOldOne) {
    world.FailHttp("GET " + kDirectory, "no route");
    EXPECT_EQ(GetDirectory(params).code, -1);
    ExpectOldDirectory();
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,no route<br>url: " + kDirectory));
}

// Behaviour: A good answer replaces the directory, also ...
TEST_F(Directory, BodyThatIsNoJsonIsStoredAsNull) {
    AnswerDirectory({200, "", "not json", ""});
    EXPECT_EQ(GetDirectory(params).code, 200);
    EXPECT_TRUE(params.directory.isNull());
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: A good answer replaces the directory, also ...
TEST_F(Directory, BodyThatIsNoObjectIsStoredToo) {
    AnswerDirectory({200, "", "[1]", ""});
    GetDirectory(params);
    EXPECT_TRUE(params.directory.isArray());
}

// Behaviour: A good answer replaces the directory, also ...
TEST_F(Directory, BodyTooDeepForTheLibraryIsStoredAsNull) {
    AnswerDirectory({200, "", std::string(100000, '['), ""});
    EXPECT_NO_THROW(GetDirectory(params));
    EXPECT_TRUE(params.directory.isNull());
}

class Nonce : public JobTest {};

// Behaviour: A nonce is the header "replay-nonce" of a GET to "newNonce", in any letter case, from an empty
//   answer too
TEST_F(Nonce, IsTheHeaderOfAnEmptyAnswer) {
    for (const std::string name : {"Replay-Nonce", "replay-nonce", "REPLAY-NONCE"}) {
        world.AnswerHttp("GET " + kNewNonce, {204, name + ": abc\r\n", "", ""});
        EXPECT_EQ(GetNonce(params), "abc") << name;
    }
}

// Behaviour: Fetching a nonce leaves the caller's URL alone
TEST_F(Nonce, LeavesTheCallersUrlAlone) {
    params.url = "newOrder";
    world.AnswerHttp("GET " + kNewNonce, {204, "Replay-Nonce: abc\r\n", "", ""});
    GetNonce(params);
    EXPECT_EQ(params.url, "newOrder");
}

// Behaviour: An answer without a nonce gives an empty one and is not repeated
TEST_F(Nonce, AnswerWithoutOneGivesNoneAndIsNotRepeated) {
    world.AnswerHttp("GET " + kNewNonce, {200, "", "", ""});
    EXPECT_EQ(GetNonce(params), "");
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: A refused answer may still carry a nonce
TEST_F(Nonce, RefusedAnswerMayStillCarryOne) {
    world.AnswerHttp("GET " + kNewNonce, {503, "Replay-Nonce: abc\r\n", "busy", ""});
    EXPECT_EQ(GetNonce(params), "abc");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 503</p></br><p><b>Details:</b> "
                            "busy</p>"));
}

// Behaviour: A failed nonce exchange gives an empty nonce and one entry
TEST_F(Nonce, FailedExchangeGivesNone) {
    world.FailHttp("GET " + kNewNonce, "timed out");
    EXPECT_EQ(GetNonce(params), "");
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kNewNonce));
}

// Behaviour: A directory without "newNonce", or with one that is no text, asks for an empty URL
TEST_F(Nonce, DirectoryWithoutTheResourceAsksForAnEmptyUrl) {
    for (const std::string directory : {"null", "{}", "[]", "\"text\"", "7", R"({"newNonce":{"a":1}})"}) {
        Json::Reader().parse(directory, params.directory);
        ambrin_data.log.clear();
        EXPECT_EQ(GetNonce(params), "");
        EXPECT_EQ(JobLog().size(), 1U) << directory;
    }
    EXPECT_THAT(world.Lines({"http"}), testing::Each("http: GET "));
}

}  // namespace
