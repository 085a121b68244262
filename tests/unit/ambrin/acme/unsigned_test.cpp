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

TEST_F(UnsignedRequest, IsOneGetWithoutHeadersOfOurOwn) {
    world.AnswerHttp("GET https://ca.test/x", JsonAnswer(200, "{}", "Replay-Nonce: n\r\n"));
    const AcmeResponse response = Get("https://ca.test/x");
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.headers.at("replay-nonce"), "n");
    EXPECT_TRUE(response.json.isObject());
    EXPECT_THAT(world.Lines(), ElementsAre("http: GET https://ca.test/x"));
    EXPECT_THAT(JobLog(), IsEmpty());
}

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

TEST_F(UnsignedRequest, RefusalIsLoggedUnderItsFixedName) {
    params.error_name = "order_failed";
    world.AnswerHttp("*", JsonAnswer(500, R"({"status":500,"detail":"sorry"})"));
    EXPECT_EQ(Get("https://ca.test/x").code, 500);
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 500</p></br><p><b>Details:</b> "
                            "sorry</p>"));
}

TEST_F(UnsignedRequest, ErrorObjectWithAGoodStatusIsLoggedAndReturned) {
    world.AnswerHttp("*", JsonAnswer(200, R"({"error":{"status":403,"detail":"x"}})"));
    EXPECT_EQ(Get("https://ca.test/x").code, 200);
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> "
                            "x</p>"));
}

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

TEST_F(Directory, IsFetchedFromItsConstantAddress) {
    EXPECT_TRUE(kDirectory.starts_with("https://"));
    AnswerDirectory(JsonAnswer(200, R"({"newOrder":"https://other.test/order"})"));
    EXPECT_EQ(GetDirectory(params).code, 200);
    EXPECT_EQ(params.directory["newOrder"].asString(), "https://other.test/order");
    EXPECT_FALSE(params.directory.isMember("newNonce"));
    EXPECT_EQ(params.url, kDirectory);
    EXPECT_THAT(world.Lines(), ElementsAre("http: GET " + kDirectory));
}

TEST_F(Directory, RefusalKeepsTheOldOne) {
    AnswerDirectory(JsonAnswer(500, R"({"newOrder":"x"})"));
    EXPECT_EQ(GetDirectory(params).code, 500);
    ExpectOldDirectory();
    EXPECT_THAT(
        JobLog(),
        ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 0</p></br><p><b>Details:</b> </p>"));
}

TEST_F(Directory, ErrorObjectKeepsTheOldOne) {
    AnswerDirectory(JsonAnswer(200, R"({"error":"maintenance"})"));
    EXPECT_EQ(GetDirectory(params).code, 200);
    ExpectOldDirectory();
}

TEST_F(Directory, FailedExchangeKeepsTheOldOne) {
    world.FailHttp("GET " + kDirectory, "no route");
    EXPECT_EQ(GetDirectory(params).code, -1);
    ExpectOldDirectory();
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,no route<br>url: " + kDirectory));
}

TEST_F(Directory, BodyThatIsNoJsonIsStoredAsNull) {
    AnswerDirectory({200, "", "not json", ""});
    EXPECT_EQ(GetDirectory(params).code, 200);
    EXPECT_TRUE(params.directory.isNull());
    EXPECT_THAT(JobLog(), IsEmpty());
}

TEST_F(Directory, BodyThatIsNoObjectIsStoredToo) {
    AnswerDirectory({200, "", "[1]", ""});
    GetDirectory(params);
    EXPECT_TRUE(params.directory.isArray());
}

TEST_F(Directory, BodyTooDeepForTheLibraryIsStoredAsNull) {
    AnswerDirectory({200, "", std::string(100000, '['), ""});
    EXPECT_NO_THROW(GetDirectory(params));
    EXPECT_TRUE(params.directory.isNull());
}

class Nonce : public JobTest {};

TEST_F(Nonce, IsTheHeaderOfAnEmptyAnswer) {
    for (const std::string name : {"Replay-Nonce", "replay-nonce", "REPLAY-NONCE"}) {
        world.AnswerHttp("GET " + kNewNonce, {204, name + ": abc\r\n", "", ""});
        EXPECT_EQ(GetNonce(params), "abc") << name;
    }
}

TEST_F(Nonce, LeavesTheCallersUrlAlone) {
    params.url = "newOrder";
    world.AnswerHttp("GET " + kNewNonce, {204, "Replay-Nonce: abc\r\n", "", ""});
    GetNonce(params);
    EXPECT_EQ(params.url, "newOrder");
}

TEST_F(Nonce, AnswerWithoutOneGivesNoneAndIsNotRepeated) {
    world.AnswerHttp("GET " + kNewNonce, {200, "", "", ""});
    EXPECT_EQ(GetNonce(params), "");
    EXPECT_THAT(JobLog(), IsEmpty());
}

TEST_F(Nonce, RefusedAnswerMayStillCarryOne) {
    world.AnswerHttp("GET " + kNewNonce, {503, "Replay-Nonce: abc\r\n", "busy", ""});
    EXPECT_EQ(GetNonce(params), "abc");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 503</p></br><p><b>Details:</b> "
                            "busy</p>"));
}

TEST_F(Nonce, FailedExchangeGivesNone) {
    world.FailHttp("GET " + kNewNonce, "timed out");
    EXPECT_EQ(GetNonce(params), "");
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kNewNonce));
}

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
