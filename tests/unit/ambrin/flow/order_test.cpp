#include "flow/order.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::kNewOrder;
using testing::ElementsAre;
using testing::IsEmpty;

class NewOrderTest : public JobTest {
protected:
    NewOrderTest() {
        StoreAccount();
        AnswerNonces();
        ambrin_data.finalize_check = "old order";
        ambrin_data.finalize = "old finalize";
    }

    std::string OrderAnsweredBy(int status, const std::string& body,
                                const std::string& head = "Location: ORDER\r\n") {
        world.AnswerHttp("POST " + kNewOrder, JsonAnswer(status, body, head));
        return NewOrder(params);
    }

    /// The payload of an order for these names.
    std::string PayloadFor(const std::string& aliases) {
        ambrin_data.aliases = aliases;
        OrderAnsweredBy(201, "{}");
        std::string payload = Requests().back().payload;
        payload.pop_back();
        return payload;
    }
};

std::string Identifier(const std::string& name) { return R"({"type":"dns","value":")" + name + "\"}"; }

const std::string kOrder =
    R"({"status":"pending","authorizations":["https://ca.test/authz/1","https://ca.test/authz/2"],)"
    R"("finalize":"https://ca.test/finalize/1"})";

// Behaviours of: Order

// Behaviour: An order has one dns identifier for each name of the job, in the job's order, repetitions
//   included
// Behaviour: The order goes to "newOrder" under the error name "order_failed" and is traced
// Behaviour: An accepted order is logged as order_success; "location" and "finalize" are stored, the
//   authorization URLs returned blank-separated
TEST_F(NewOrderTest, AcceptedOrderIsKeptAndItsAuthorizationsReturned) {
    ambrin_data.aliases = "a.example b.example";
    EXPECT_EQ(OrderAnsweredBy(201, kOrder), "https://ca.test/authz/1 https://ca.test/authz/2");
    EXPECT_EQ(ambrin_data.finalize_check, "ORDER");
    EXPECT_EQ(ambrin_data.finalize, "https://ca.test/finalize/1");
    EXPECT_THAT(JobLog(), ElementsAre("processing,order_success,"));
    EXPECT_THAT(Story(),
                ElementsAre("nonce", "POST " + kNewOrder + " {\"identifiers\":[" + Identifier("a.example") +
                                         "," + Identifier("b.example") + "]}"));
    EXPECT_EQ(Traces().front(), "Ambrin new order");
    EXPECT_EQ(params.error_name, "order_failed");
}

// Behaviour: A refusal, an error object or a failed exchange leaves the stored order alone
TEST_F(NewOrderTest, RefusedOrderLeavesTheStoredOrderAlone) {
    EXPECT_EQ(OrderAnsweredBy(403, R"({"status":403,"detail":"rate limit"})"), "");
    EXPECT_EQ(ambrin_data.finalize_check, "old order");
    EXPECT_EQ(ambrin_data.finalize, "old finalize");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,order_failed,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> rate "
                            "limit</p>"));
}

// Behaviour: A refusal, an error object or a failed exchange leaves the stored ...
TEST_F(NewOrderTest, OrderWithAnErrorIsRefused) {
    EXPECT_EQ(OrderAnsweredBy(201, R"({"authorizations":["x"],"error":{}})"), "");
    EXPECT_EQ(ambrin_data.finalize_check, "old order");
}

// Behaviour: A refusal, an error object or a failed exchange leaves the stored ...
TEST_F(NewOrderTest, FailedExchangeLeavesTheStoredOrderAlone) {
    world.FailHttp("POST *", "timed out");
    EXPECT_EQ(NewOrder(params), "");
    EXPECT_EQ(ambrin_data.finalize, "old finalize");
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kNewOrder));
}

// Behaviour: An order has one dns identifier for each ...
TEST_F(NewOrderTest, NamesKeepTheirOrderAndTheirRepetitions) {
    EXPECT_EQ(PayloadFor("b.example a.example b.example"), R"({"identifiers":[)" + Identifier("b.example") +
                                                               "," + Identifier("a.example") + "," +
                                                               Identifier("b.example") + "]}");
}

// Behaviour: Blanks around and between names count for nothing
TEST_F(NewOrderTest, BlanksAroundNamesCountForNothing) {
    EXPECT_EQ(PayloadFor("  a.example   b.example "),
              R"({"identifiers":[)" + Identifier("a.example") + "," + Identifier("b.example") + "]}");
}

// Behaviour: Only blanks separate names; a piece of other white space is an empty identifier
TEST_F(NewOrderTest, OnlyBlanksSeparateNames) {
    EXPECT_EQ(PayloadFor("a.example\tb.example"),
              R"({"identifiers":[)" + Identifier("a.example\\tb.example") + "]}");
    EXPECT_EQ(PayloadFor("a.example \t b.example\n"), R"({"identifiers":[)" + Identifier("a.example") + "," +
                                                          Identifier("") + "," + Identifier("b.example") +
                                                          "]}");
}

// Behaviour: Names go out in their ASCII form
TEST_F(NewOrderTest, NamesGoOutInTheirAsciiForm) {
    EXPECT_EQ(
        PayloadFor("m\xC3\xBCnchen.example *.example"),
        R"({"identifiers":[)" + Identifier("xn--mnchen-3ya.example") + "," + Identifier("*.example") + "]}");
}

// Behaviour: A name without an ASCII form travels to the caller as an error, before anything is asked
TEST_F(NewOrderTest, NameWithoutAsciiFormTravelsToTheCaller) {
    ambrin_data.aliases = "\xFF.example";
    EXPECT_THROW(NewOrder(params), vek_err::Error);
    EXPECT_THAT(Story(), IsEmpty());
}

// Behaviour: A job without names sends an empty list
TEST_F(NewOrderTest, JobWithoutNamesSendsAnEmptyList) {
    EXPECT_EQ(PayloadFor(""), R"({"identifiers":[]})");
    EXPECT_EQ(PayloadFor("   "), R"({"identifiers":[]})");
}

// Behaviour: Nothing of an earlier payload stays in the order
TEST_F(NewOrderTest, PayloadOfTheRegistrationDoesNotStayInTheOrder) {
    params.payload["termsOfServiceAgreed"] = true;
    EXPECT_EQ(PayloadFor("a.example"), R"({"identifiers":[)" + Identifier("a.example") + "]}");
}

// Behaviour: A good answer without authorizations is a logged success with an empty result
TEST_F(NewOrderTest, AnswerWithoutAuthorizationsIsLoggedAsASuccessAndEmpty) {
    EXPECT_EQ(OrderAnsweredBy(201, R"({"finalize":"F"})"), "");
    EXPECT_EQ(ambrin_data.finalize_check, "ORDER");
    EXPECT_EQ(ambrin_data.finalize, "F");
    EXPECT_THAT(JobLog(), ElementsAre("processing,order_success,"));
}

// Behaviour: A good answer that is no JSON, or without "location", empties the stored URLs
TEST_F(NewOrderTest, AnswerThatIsNoJsonEmptiesTheStoredUrls) {
    EXPECT_EQ(OrderAnsweredBy(200, "not json", ""), "");
    EXPECT_EQ(ambrin_data.finalize_check, "");
    EXPECT_EQ(ambrin_data.finalize, "");
}

// Behaviour: Authorizations of other types are no errors
TEST_F(NewOrderTest, AuthorizationsOfOtherTypesAreNoErrors) {
    EXPECT_EQ(OrderAnsweredBy(201, R"({"authorizations":["u",7,null,["x"],{},"v"],"finalize":["x"]})"),
              "u 7 v");
    EXPECT_EQ(ambrin_data.finalize, "");
    EXPECT_EQ(OrderAnsweredBy(201, R"({"authorizations":{"b":"2","a":"1"},"finalize":7})"), "1 2");
    EXPECT_EQ(ambrin_data.finalize, "7");
    EXPECT_EQ(OrderAnsweredBy(201, R"({"authorizations":"u"})"), "");
    EXPECT_EQ(OrderAnsweredBy(201, R"(["authorizations"])"), "");
    EXPECT_EQ(OrderAnsweredBy(201, "7"), "");
}

}  // namespace
