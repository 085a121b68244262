// Exchanges over plain HTTP with servers that answer well and badly.
#include "vek/rpc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "integration/vek/server.h"
#include "libvek/src/exchange.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vek_rpc::HttpQuery;
using vek_test::Answer;
using vek_test::Connection;
using vek_test::HttpRequest;
using vek_test::Server;

Server::Handler Says(const std::string& answer) {
    return [answer](Connection& connection) {
        connection.ReadRequest();
        connection.Write(answer);
    };
}

Server::Handler Notes(std::vector<HttpRequest>& requests) {
    return [&requests](Connection& connection) {
        requests.push_back(connection.ReadRequest());
        connection.Write(Answer(200, "", "ok"));
    };
}

std::string GetWithHeader(const std::string& url) {
    HttpQuery query;
    query.AcceptHeader();
    query.AcceptAnyResponse();
    std::ostringstream out;
    query.Get(url, out);
    return out.str();
}

std::string Get(const std::string& url) {
    HttpQuery query;
    std::ostringstream out;
    query.Get(url, out);
    return out.str();
}

// The text of the error that an exchange with a server that says this ends with; empty without one.
std::string ErrorFor(const std::string& answer) {
    const Server server(Says(answer));
    try {
        GetWithHeader(server.url());
        return "";
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "exchange");
        return e.what();
    }
}

// Behaviours of: HTTP exchanges

// Behaviour: An exchange connects to an address that was given for it, whatever its host's addresses are, and
//   asks for the URL's host there
TEST(HttpExchange, ConnectsToAnotherAddressThanItsHosts) {
    std::vector<HttpRequest> requests;
    const Server server(Notes(requests));
    const std::string port = std::to_string(server.port());
    HttpQuery query;
    query.ConnectTo("127.0.0.1");
    std::ostringstream out;
    query.Get("http://no-such-name.invalid:" + port + "/a", out);
    query.Get("http://192.0.2.1:" + port + "/b", out);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_THAT(requests[0].head, HasSubstr("\r\nHost: no-such-name.invalid:" + port + "\r\n"));
    HttpQuery ipv6;
    ipv6.ConnectTo("::1");
    EXPECT_THROW(ipv6.Get("http://127.0.0.1:" + port + "/", out), vek_err::Error) << "nobody listens there";
    for (const std::string& text : {std::string(), std::string("[::1]"), std::string("1.2.3"),
                                    std::string("127.0.0.1:80"), std::string("127.0.0.1\0x", 11)}) {
        EXPECT_THROW(HttpQuery().ConnectTo(text), vek_err::Error) << text;
    }
}

// Behaviour: An exchange is HTTP/1.1 with a User-Agent that names the framework and its version
TEST(HttpExchange, NamesTheFrameworkAndItsVersion) {
    std::vector<HttpRequest> requests;
    {
        const Server server(Notes(requests));
        Get(server.url());
    }
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_THAT(requests[0].head, StartsWith("GET / HTTP/1.1\r\n"));
    EXPECT_THAT(requests[0].head,
                testing::ContainsRegex("\r\nUser-Agent: libvek/[0-9]+\\.[0-9]+\\.[0-9]+\r\n"));
}

// Behaviour: Header lines are sent with every exchange of their object; one with a line break is refused
TEST(HttpExchange, SendsItsHeaderLinesEachTime) {
    std::vector<HttpRequest> requests;
    {
        const Server server(Notes(requests));
        HttpQuery query;
        query.AddHeader("Content-Type: application/jose+json");
        query.AddHeader("Connection: Close");
        std::ostringstream out;
        query.Post(server.url() + "order", "{\"a\":1}", out);
        query.Get(server.url() + "order", out);
        query.Post(server.url() + "order", "", out);
        EXPECT_EQ(out.str(), "okokok");
    }
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_THAT(requests[0].head, StartsWith("POST /order HTTP/1.1\r\n"));
    EXPECT_EQ(requests[0].body, "{\"a\":1}");
    EXPECT_THAT(requests[1].head, StartsWith("GET /order HTTP/1.1\r\n"));
    EXPECT_THAT(requests[2].head, HasSubstr("\r\nContent-Length: 0\r\n"));
    for (const auto& request : requests) {
        EXPECT_THAT(request.head, HasSubstr("\r\nContent-Type: application/jose+json\r\n"));
        EXPECT_THAT(request.head, HasSubstr("\r\nConnection: Close\r\n"));
    }
}

// Behaviour: Header lines are sent with every exchange ...
TEST(HttpExchange, SaysWhatItRefusesBeforeAnythingIsSent) {
    const auto refusal = [](const std::string& url, const std::string& line) -> std::string {
        HttpQuery query;
        query.AddHeader(line);
        std::ostringstream out;
        try {
            query.Get(url, out);
            return "";
        } catch (const vek_err::Error& e) {
            return e.what();
        }
    };
    EXPECT_EQ(refusal("ftp://127.0.0.1/", "X: 1"), "http: url: \"ftp://127.0.0.1/\" is no http or https URL");
    EXPECT_EQ(refusal("", "X: 1"), "http: url: \"\" is no http or https URL");
    EXPECT_EQ(refusal("http://127.0.0.1:1/", "X: 1\nY"), "http: header: a line break in X: 1\nY");
}

// Behaviour: Header lines are sent with every exchange ...
TEST(HttpExchange, RefusesAHeaderLineWithALineBreak) {
    std::vector<HttpRequest> requests;
    {
        const Server server(Notes(requests));
        HttpQuery query;
        query.AddHeader("X-A: b\r\nX-C: d");
        std::ostringstream out;
        EXPECT_THROW(query.Get(server.url(), out), vek_err::Error);
    }
    EXPECT_TRUE(requests.empty());
}

// Behaviour: Every exchange has a connection of its own
TEST(HttpExchange, HasAConnectionOfItsOwn) {
    const auto keep_alive = [](Connection& connection) {
        while (!connection.ReadRequest().head.empty()) connection.Write(Answer(200, "", "ok"));
    };
    const Server server(keep_alive);
    HttpQuery query;
    std::ostringstream out;
    query.Get(server.url(), out);
    query.Get(server.url(), out);
    Get(server.url());
    EXPECT_EQ(server.connections(), 3);
}

// Behaviour: A large body is sent without asking first
TEST(HttpExchange, DoesNotAskBeforeALargeBody) {
    std::vector<HttpRequest> requests;
    const std::string body(3 << 20, 'x');
    {
        const Server server(Notes(requests));
        HttpQuery query;
        std::ostringstream out;
        query.Post(server.url(), body, out);
    }
    EXPECT_EQ(requests.at(0).body, body);
    EXPECT_THAT(requests.at(0).head, Not(HasSubstr("Expect")));
}

// Behaviour: Proxies and passwords of the environment are not used
TEST(HttpExchange, TakesNothingFromTheEnvironment) {
    std::vector<HttpRequest> requests;
    const vek_test::TempFolder home;
    std::ofstream(home.file(".netrc")) << "machine 127.0.0.1 login me password secret\n";
    const vek_test::Variable home_variable("HOME", home.path());
    const vek_test::Variable proxy("http_proxy", "http://127.0.0.1:1/");
    const vek_test::Variable all("ALL_PROXY", "http://127.0.0.1:1/");
    {
        const Server server(Notes(requests));
        Get(server.url());
    }
    EXPECT_THAT(requests.at(0).head, Not(HasSubstr("Authorization")));
}

// Behaviour: With the header accepted, the final header block comes ahead of the body as it was received;
//   interim ones and trailers are left out
TEST(HttpExchange, GivesTheFinalHeaderBlockAsItCame) {
    const std::string block =
        "HTTP/1.1 201 Created\r\nReplay-Nonce:  a \r\nX: 1\r\nx: 2\r\nContent-Length: 4\r\n\r\n";
    const Server server(
        Says("HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"
             "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n" +
             block + "body"));
    EXPECT_EQ(GetWithHeader(server.url()), block + "body");
}

// Behaviour: With the header accepted, the final header ...
TEST(HttpExchange, TakesLineFeedsAloneForLineEnds) {
    const std::string block = "HTTP/1.1 200 OK\nContent-Length: 2\n\n";
    const Server server(Says("HTTP/1.1 103 Early Hints\nX: 1\n\n" + block + "ok"));
    EXPECT_EQ(GetWithHeader(server.url()), block + "ok");
}

// Behaviour: With the header accepted, the final header ...
TEST(HttpExchange, LeavesTrailersOut) {
    const std::string block = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const Server server(Says(block + "4\r\nbody\r\n0\r\nX-Trailer: 1\r\nHTTP/1.1 500 X: 2\r\n\r\n"));
    EXPECT_EQ(GetWithHeader(server.url()), block + "body");
}

// Behaviour: NUL bytes and megabytes arrive whole
TEST(HttpExchange, GivesNulBytesAndMegabytesWhole) {
    std::string body("\0a\0\r\n\r\n", 7);
    while (body.size() < (3U << 20)) body += body;
    const Server server(Says(Answer(200, "", body)));
    EXPECT_EQ(Get(server.url()), body);
}

// Behaviour: The status is the final response's, 0 before an exchange and after a failed one
TEST(HttpExchange, GivesTheStatusOfTheFinalResponse) {
    const Server server(Says("HTTP/1.1 103 Early Hints\r\n\r\n" + Answer(204, "", "")));
    HttpQuery query;
    std::ostringstream out;
    query.Get(server.url(), out);
    EXPECT_EQ(query.Status(), 204);
    EXPECT_THROW(query.Get("http://127.0.0.1:1/", out), vek_err::Error);
    EXPECT_EQ(query.Status(), 0);
}

// Behaviour: With any response accepted every status is ...
TEST(HttpExchange, TakesStatusesFrom400OnForErrors) {
    const auto outcome = [](int status) -> std::string {
        const Server server(Says(Answer(status, "", "body")));
        try {
            return Get(server.url());
        } catch (const vek_err::Error& e) {
            return str::Replace(e.what(), server.url(), "<url>");
        }
    };
    EXPECT_EQ(outcome(399), "body");
    EXPECT_EQ(outcome(400), "http: status: <url> answered with status 400");
    EXPECT_EQ(outcome(401), "http: status: <url> answered with status 401");
}

// Behaviour: A failed exchange is one exception that names host and reason; nothing is written
TEST(HttpExchange, NamesHostAndReasonWhenRefused) {
    try {
        Get("http://127.0.0.1:1/secret-path");
        FAIL();
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "exchange");
        EXPECT_THAT(e.what(), HasSubstr("127.0.0.1"));
        EXPECT_THAT(e.what(), HasSubstr("Couldn't connect"));
    }
}

// Behaviour: A failed exchange is one exception that names ...
TEST(HttpExchange, FailsWhereTheAnswerIsNone) {
    EXPECT_NE(ErrorFor(""), "");
    EXPECT_NE(ErrorFor("garbage\r\n\r\n"), "");
    EXPECT_NE(ErrorFor("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"), "");
    EXPECT_NE(ErrorFor("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbo"), "");
    EXPECT_NE(ErrorFor("HTTP/1.1 100 Continue\r\n\r\n"), "");
    EXPECT_EQ(ErrorFor(Answer(500, "", "")), "");
}

// Behaviour: A failed exchange is one exception that names ...
TEST(HttpExchange, WritesNothingWhenItFails) {
    const Server server(Says("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"));
    HttpQuery query;
    std::ostringstream out;
    EXPECT_THROW(query.Get(server.url(), out), vek_err::Error);
    EXPECT_EQ(out.str(), "");
}

// Behaviour: What is read has a size limit, headers too
TEST(HttpExchange, RefusesAnAnswerBeyondItsLimits) {
    EXPECT_EQ(ErrorFor(Answer(200, "", std::string(16UL << 20, 'x'))), "");
    const std::string too_large = "http: exchange: 127.0.0.1: the answer is too large";
    EXPECT_EQ(ErrorFor(Answer(200, "", std::string((16UL << 20) + 1, 'x'))), too_large);
    EXPECT_EQ(ErrorFor(vek_test::AnswerWithHeaderOf(256UL << 10, "")), "");
    EXPECT_EQ(ErrorFor(vek_test::AnswerWithHeaderOf((256UL << 10) + 1, "")), too_large);
}

// Behaviour: What is read has a size limit, headers too ...
// One byte too much, on its own.
TEST(HttpExchange, RefusesTheFirstByteBeyondItsLimits) {
    const std::string block = "HTTP/1.1 200 OK\nContent-Length: 5\n\n";
    const auto serve = [&block](Connection& connection) {
        connection.ReadRequest();
        connection.Write(block + "four");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        connection.Write("x");
    };
    const auto carry = [&serve](std::size_t header, std::size_t body) -> std::string {
        const Server server(serve);
        try {
            return vek_rpc::Carry({server.url(), {}, nullptr}, {.header = header, .body = body}).body;
        } catch (const vek_err::Error& e) {
            return e.what();
        }
    };
    EXPECT_EQ(carry(block.size(), 5), "fourx");
    EXPECT_EQ(carry(block.size(), 4), "http: exchange: 127.0.0.1: the answer is too large");
    EXPECT_EQ(carry(block.size() - 1, 5), "http: exchange: 127.0.0.1: the answer is too large");
}

// Behaviour: What is read has a size limit, headers too ...
TEST(HttpExchange, RefusesALastHeaderByteBeyondItsLimitWhereNoBodyFollows) {
    const std::string block = "HTTP/1.1 200 OK\nContent-Length: 0\n\n";
    const Server server(Says(block));
    EXPECT_EQ(vek_rpc::Carry({server.url(), {}, nullptr}, {.header = block.size()}).header, block);
    EXPECT_THROW(vek_rpc::Carry({server.url(), {}, nullptr}, {.header = block.size() - 1}), vek_err::Error);
}

// Behaviour: A server that hangs up is an error, no signal
// A write to a socket that the server has closed raises SIGPIPE, which nobody handles here.
TEST(HttpExchange, SurvivesAServerThatHangsUp) {
    const Server server([](Connection&) {});
    HttpQuery query;
    std::ostringstream out;
    EXPECT_THROW(query.Post(server.url(), std::string(16 << 20, 'x'), out), vek_err::Error);
}

struct Waiting : testing::Test {
    // Whether an exchange within these limits fails, and sooner than within the usual ones.
    static bool EndsEarly(const std::string& url, const vek_rpc::Limits& limits) {
        const auto start = steady_clock::now();
        try {
            vek_rpc::Carry({url, {}, nullptr}, limits);
        } catch (const vek_err::Error&) {
            return steady_clock::now() - start < seconds(25);
        }
        return false;
    }
    const Server::Handler silent = [](Connection& connection) { connection.AwaitEnd(); };
};

// Behaviour: Connecting with its handshake, a stall and ...
TEST_F(Waiting, EndsWhereNoByteComes) {
    const Server server(silent);
    EXPECT_TRUE(EndsEarly(server.url(), {.stall = seconds(1)}));
}

// Behaviour: Connecting with its handshake, a stall and the whole exchange have time limits
TEST_F(Waiting, EndsWhereAHandshakeTakesTooLong) {
    const Server server(silent);
    EXPECT_TRUE(
        EndsEarly("https://127.0.0.1:" + std::to_string(server.port()) + "/", {.connect = seconds(1)}));
}

// Behaviour: Connecting with its handshake, a stall and ...
TEST_F(Waiting, EndsWhereEverythingTakesTooLong) {
    const auto drip = [](Connection& connection) {
        connection.ReadRequest();
        connection.Write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        while (connection.Write("x")) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    const Server server(drip);
    EXPECT_TRUE(EndsEarly(server.url(), {.total = seconds(1)}));
}

}  // namespace
