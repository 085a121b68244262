#include "zelvek/certificates/renewal_info.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zelvek/base/error.h"
#include "zelvek/certificates/chain.h"

namespace zelvek::renewal_info {
namespace {

using vek_date::DateTime;

// RFC 9773, appendix A.
const std::string kExample =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBQzCB66ADAgECAgUAh2VDITAKBggqhkjOPQQDAjAVMRMwEQYDVQQDEwpFeGFt\n"
    "cGxlIENBMCIYDzAwMDEwMTAxMDAwMDAwWhgPMDAwMTAxMDEwMDAwMDBaMBYxFDAS\n"
    "BgNVBAMTC2V4YW1wbGUuY29tMFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEeBZu\n"
    "7cbpAYNXZLbbh8rNIzuOoqOOtmxA1v7cRm//AwyMwWxyHz4zfwmBhcSrf47NUAFf\n"
    "qzLQ2PPQxdTXREYEnKMjMCEwHwYDVR0jBBgwFoAUaYhba4dGQEHhs3uEe6CuLN4B\n"
    "yNQwCgYIKoZIzj0EAwIDRwAwRAIge09+S5TZAlw5tgtiVvuERV6cT4mfutXIlwTb\n"
    "+FYN/8oCIClDsqBklhB9KAelFiYt9+6FDj3z4KGVelYM5MdsO3pK\n"
    "-----END CERTIFICATE-----\n";

std::string ErrorOf(const std::string& body) {
    try {
        ReadWindow(body);
        return "";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kProtocol);
        return error.what();
    }
}

// Behaviours of: Scheduling

// Behaviour: A certificate is asked for by its issuer's key and its number, as RFC 9773 has them
TEST(RenewalInfo, NamesACertificateByIssuerAndNumber) {
    EXPECT_EQ(RenewalNameOf(kExample), "aYhba4dGQEHhs3uEe6CuLN4ByNQ.AIdlQyE");
}

// Behaviour: The suggested window is read in any form of RFC 3339; what is no window is an error
TEST(RenewalInfo, ReadsTheWindow) {
    const Window window = ReadWindow(
        R"({"suggestedWindow": {"start": "2031-01-02T04:00:00Z", "end": "2031-01-03t04:00:00.25+02:00"},)"
        R"( "explanationURL": "https://ca.example/why"})");
    EXPECT_EQ(window.start.AsDateTime(), "2031-01-02 04:00:00");
    EXPECT_EQ(window.end.AsDateTime(), "2031-01-03 02:00:00");
    EXPECT_EQ(ReadTime("2031-01-02T04:00:00-01:30").AsDateTime(), "2031-01-02 05:30:00");
}

// Behaviour: The suggested window is read in any form of ...
TEST(RenewalInfo, RefusesWhatIsNoWindow) {
    const std::string deep(5000, '[');
    for (const std::string& body :
         {std::string(), std::string("[]"), deep, std::string("{}"), std::string(R"({"suggestedWindow": 7})"),
          std::string(R"({"suggestedWindow": {"start": 1, "end": 2}})"),
          std::string(
              R"({"suggestedWindow": {"start": "2031-13-02T04:00:00Z", "end": "2031-01-03T04:00:00Z"}})"),
          std::string(
              R"({"suggestedWindow": {"start": "2031-01-04T04:00:00Z", "end": "2031-01-03T04:00:00Z"}})"),
          "{\"a\": \"" + std::string(200'000, 'a') + "\"}"}) {
        EXPECT_NE(ErrorOf(body), "") << body.substr(0, 100);
    }
}

// Behaviour: A certificate keeps its moment within a window, however often that is asked for; moments of many
//   certificates are spread over it
TEST(RenewalInfo, SpreadsCertificatesOverTheWindow) {
    const Window window{DateTime("2031-01-01 00:00:00"), DateTime("2031-01-03 00:00:00")};
    EXPECT_EQ(Within(window, 0).AsDateTime(), "2031-01-01 00:00:00");
    EXPECT_EQ(Within(window, 0.5).AsDateTime(), "2031-01-02 00:00:00");
    EXPECT_EQ(ShareOf("a.b"), ShareOf("a.b"));
    std::vector<int> tenths(10);
    for (int i = 0; i < 1000; ++i)
        ++tenths[static_cast<std::size_t>(ShareOf("key." + std::to_string(i)) * 10)];
    for (const int count : tenths) EXPECT_NEAR(count, 100, 60);
}

// Behaviour: An authority's answer says how long to wait before it is asked again, in seconds or by a date
TEST(RenewalInfo, ReadsWhenToAskAgain) {
    const auto asked = [](const std::string& line) {
        return RetryAfter("HTTP/1.1 200 OK\r\n" + line + "\r\nA: b");
    };
    EXPECT_EQ(asked("Retry-After: 21600"), 21600);
    EXPECT_EQ(asked("retry-after:120 "), 120);
    EXPECT_EQ(asked("Retry-After: -5"), 0);
    EXPECT_EQ(asked("Retry-After: soon"), 0);
    EXPECT_EQ(asked("Retry-After: Fri, 31 Dec 1999 23:59:59 GMT"), 0);
    EXPECT_GT(asked("Retry-After: Fri, 31 Dec 2999 23:59:59 GMT"), 300 * 24 * 3600);
    EXPECT_EQ(asked("X: y"), 0);
}

}  // namespace
}  // namespace zelvek::renewal_info
