#include <functional>

#include "acme/unsigned.h"
#include "challenges/challenge_list.h"
#include "flow/account.h"
#include "flow/authorization.h"
#include "flow/finalization.h"
#include "flow/order.h"
#include "support/job_test.h"

// Whatever an authority answers, with whatever status: no step ends by an exception, and none takes it for a
// success that it is not.
namespace {

using ambrin_test::JobTest;

const std::vector<std::string>& Bodies() {
    static const std::vector<std::string> bodies{
        "",
        "null",
        "true",
        "7",
        "-1.5e300",
        "123456789012345678901234567890",
        "\"valid\"",
        "[]",
        "[\"valid\",{\"status\":\"valid\"}]",
        "[[[[1]]]]",
        "{}",
        "{\"status\":7}",
        "{\"status\":{\"status\":\"valid\"},\"authorizations\":{\"a\":[]},\"finalize\":[],\"certificate\":{}"
        "}",
        "{\"status\":[\"valid\"],\"authorizations\":[[],{},7,null,true],\"finalize\":{},\"certificate\":[]}",
        "{\"status\":null,\"authorizations\":\"x\",\"error\":[]}",
        "{\"error\":{\"status\":[],\"detail\":{}}}",
        "{\"error\":7}",
        "{\"challenges\":{\"a\":1},\"identifier\":7}",
        "{\"challenges\":[7,null,\"x\",[],{\"type\":[]},{\"type\":\"http-01\",\"token\":[],\"url\":{}}],"
        "\"identifier\":[]}",
        "{\"status\":\"pending\",",
        "{\"status\":\"val\0id\"}",
        "\xFF\xFE{\"status\":\"\xC3\"}",
        "{\"status\":\"\\ud800\"}",
        "{\"status\":\"\\u0000\"}",
        std::string("{\"a\":\"\0\"}\0", 10),
        std::string(100000, '['),
        std::string(100000, '[') + std::string(100000, ']'),
        std::string(999, '[') + std::string(999, ']'),
        "{\"a\":\"" + std::string(3 << 20, 'x') + "\"}",
        std::string(3 << 20, ' ') + "x",
    };
    return bodies;
}

class HostileAnswer : public JobTest {
protected:
    HostileAnswer() {
        StoreAccount();
        AnswerNonces();
        AnswerDigests();
        AnswerKeyDumps();
        world.SetLogLevel(0);
        ambrin_data.finalize = "https://ca.test/finalize/1";
        ambrin_data.check_type = "http";
        params.url = "https://ca.test/object";
    }

    void ForEveryAnswer(const std::function<void()>& step) {
        for (const int status : {200, 201, 400}) {
            for (const std::string& body : Bodies()) {
                const vek_double::HttpAnswer answer{status, "retry-after: 0\r\n", body, ""};
                world.AlwaysHttp("POST *", [answer](const std::string&) { return answer; });
                EXPECT_NO_THROW(step()) << status << " " << body.substr(0, 80);
                world.ForgetCalls();
                ambrin_data.log.clear();
            }
        }
    }
};

// Behaviours of: Any authority

// Behaviour: No odd answer makes an account valid, resolves an object or gives a certificate
TEST_F(HostileAnswer, NeverMakesAnAccountValid) {
    ForEveryAnswer([&] { EXPECT_FALSE(CheckAccount(params)); });
}

// Behaviour: Whatever the authority answers, no step ends by an exception of the JSON library
TEST_F(HostileAnswer, NeverEndsTheRegistrationByAnException) {
    ForEveryAnswer([&] { Registration(params); });
}

// Behaviour: No value of another type becomes an authorization's URL
TEST_F(HostileAnswer, NeverGivesAnAuthorizationUrlOfAnotherType) {
    ForEveryAnswer([&] {
        const std::string urls = NewOrder(params);
        EXPECT_TRUE(urls.empty() || urls == "7 true") << urls.substr(0, 80);
    });
}

// Behaviour: Whatever the authority answers, no step ends ...
TEST_F(HostileAnswer, StoredAuthorizationsCanBeListedOrRefused) {
    ForEveryAnswer([&] {
        Autorization(params, "https://ca.test/authz/1");
        std::map<std::string, std::string> challenge_params;
        std::list<ChallengeData> challenges;
        PrepareChallengesList(challenge_params, challenges);
        for (const ChallengeData& challenge : challenges) EXPECT_EQ(challenge.url, "");
    });
}

// Behaviour: No odd answer makes an account valid, resolves ...
TEST_F(HostileAnswer, NeverResolvesAnObject) {
    ForEveryAnswer([&] {
        WaitToResolve(params, "challenge");
        EXPECT_EQ(ambrin_data.log.find("challenge_success"), std::string::npos);
    });
}

// Behaviour: No odd answer makes an account valid, resolves ...
TEST_F(HostileAnswer, NeverGivesACertificate) {
    ForEveryAnswer([&] { EXPECT_EQ(GetCertOrderUrl(params, "DER"), ""); });
}

// Behaviour: Whatever the authority answers, no step ends ...
TEST_F(HostileAnswer, DirectoryOfAnyKindEndsNoRun) {
    for (const std::string& body : Bodies()) {
        world.AlwaysHttp("GET " AMBRIN_DIRECTORY_URL, [&](const std::string&) {
            return vek_double::HttpAnswer{200, "", body, ""};
        });
        EXPECT_NO_THROW({
            GetDirectory(params);
            NewOrder(params);
        }) << body.substr(0, 80);
        world.ForgetCalls();
        ambrin_data.log.clear();
    }
}

// Behaviour: Whatever the authority answers, no step ends ...
TEST_F(HostileAnswer, RawBytesInPlaceOfHeadersEndNoStep) {
    for (const std::string& raw : Bodies()) {
        world.AlwaysHttp("POST *", [&](const std::string&) {
            return vek_double::HttpAnswer{200, "", "", raw + "\n"};
        });
        EXPECT_NO_THROW(WaitToResolve(params, "challenge")) << raw.substr(0, 80);
        world.ForgetCalls();
    }
}

}  // namespace
