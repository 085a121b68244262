// What a Prometheus server is told of the service.
#include "zelvek/metrics/metrics.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/jobs/run_end.h"
#include "zelvek/metrics/endpoint.h"
#include "zelvek/store/usage.h"
#include "zelvek_store/engine.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kMetricsTime = "2031-05-04 12:00:00";

class Metrics : public StoreTest {
protected:
    std::string Text(const metrics::Settings& settings = {}) {
        return Do(
            [&](Transaction& transaction) { return metrics::Text(transaction, settings, kMetricsTime); });
    }

    int AddEnding(const std::string& certname, const std::string& expires) {
        Job job;
        job.user_name = "anna";
        job.certname = certname;
        job.verified = true;
        job.expires = expires;
        return AddJob(job);
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Metrics, ::testing::ValuesIn(Engines()), EngineName);

/// All that the endpoint answers to a request.
std::string Get(int port, const std::string& request) {
    const Descriptor connection(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const std::string text = request + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
    ::send(connection.get(), text.data(), text.size(), MSG_NOSIGNAL);
    std::string answer;
    char buffer[4096];
    for (ssize_t got = 0; (got = ::recv(connection.get(), buffer, sizeof buffer, 0)) > 0;)
        answer.append(buffer, static_cast<std::size_t>(got));
    return answer;
}

// Behaviours of: Watching the service

// Behaviour: The certificates that end next are told one by one, as many as are wanted and no more; what is
//   in a name breaks no line
TEST_P(Metrics, TellOfTheSoonestEndsOneByOne) {
    AddEnding("later.example", "2031-06-04 12:00:00");
    AddEnding("ended.example", "2031-05-04 11:59:00");
    const int odd = AddEnding("a\"b\\c\nd", "2031-05-05 12:00:00");
    const std::string name = "zelvek_certificate_expires_in_seconds";
    const std::string text = Text({2, 250});
    EXPECT_THAT(text, HasSubstr("certificate=\"ended.example\",user=\"anna\"} -60\n"));
    EXPECT_THAT(text, HasSubstr(name + "{id=\"" + std::to_string(odd) +
                                "\",certificate=\"a\\\"b\\\\c\\nd\",user=\"anna\"} 86400\n"));
    EXPECT_THAT(text, Not(HasSubstr("later.example")));
    EXPECT_THAT(Text({0, 250}), Not(HasSubstr(name + "{")));
}

// Behaviour: All certificates are counted by the days that are left
TEST_P(Metrics, CountCertificatesByDaysLeft) {
    for (const char* end :
         {"2031-05-03 23:00:00", "2031-05-04 11:00:00", "2031-05-06 00:00:00", "2031-09-01 00:00:00"})
        AddEnding("c", end);
    const std::string text = Text();
    for (const char* line : {"{within_days=\"0\"} 1\n", "{within_days=\"1\"} 2\n", "{within_days=\"3\"} 3\n",
                             "{within_days=\"90\"} 3\n", "{within_days=\"+Inf\"} 4\n"})
        EXPECT_THAT(text, HasSubstr(std::string("zelvek_certificates") + line));
}

// Behaviour: The queue's age is that of the job that is due the longest; a paused or a later one has none
TEST_P(Metrics, TellForHowLongAJobWaits) {
    AddDue("2031-05-04 11:00:00", &Job::paused);
    AddDue("2031-05-04 13:00:00");
    EXPECT_THAT(Text(), HasSubstr("\nzelvek_queue_age_seconds 0\n"));
    AddDue("2031-05-04 11:58:20");
    AddDue("2031-05-04 11:59:00");
    EXPECT_THAT(Text(), HasSubstr("\nzelvek_queue_age_seconds 100\n"));
}

// Behaviour: A certificate whose renewal is due and has not begun makes the queue as old as that
TEST_P(Metrics, TellForHowLongARenewalWaits) {
    Job job;
    job.verified = true;
    job.renew = "2031-05-04 11:59:50";
    AddJob(job);
    EXPECT_THAT(Text(), HasSubstr("\nzelvek_queue_age_seconds 10\n"));
}

// Behaviour: Runs are told by outcome and class, with how long they took
TEST_P(Metrics, TellOfEndedRuns) {
    Do([](Transaction& transaction) {
        using std::chrono::milliseconds;
        run_end::Count(transaction, {"failed", Outcome::kLimited, milliseconds{1500}});
        run_end::Count(transaction, {"failed", Outcome::kLimited, milliseconds{2000}});
        run_end::Count(transaction, {"installed", Outcome::kOnItsWay, milliseconds{7200'000}});
        run_end::CountDeath(transaction);
    });
    const std::string text = Text();
    for (const char* line :
         {"runs_total{outcome=\"failed\",class=\"limited\"} 2\n",
          "runs_total{outcome=\"installed\",class=\"none\"} 1\n",
          "runs_total{outcome=\"died\",class=\"unreached\"} 1\n", "run_duration_seconds_bucket{le=\"1\"} 0\n",
          "run_duration_seconds_bucket{le=\"2\"} 2\n", "run_duration_seconds_bucket{le=\"3600\"} 2\n",
          "run_duration_seconds_bucket{le=\"+Inf\"} 3\n", "run_duration_seconds_count 3\n",
          "run_duration_seconds_sum 7203.5\n"})
        EXPECT_THAT(text, HasSubstr(std::string("\nzelvek_") + line));
}

// Behaviour: The orders of an authority's account are told with their limit
TEST_P(Metrics, TellOfOrders) {
    AddJob();
    Do([](Transaction& transaction) {
        for (const char* time : {"2031-05-04 08:59:00", "2031-05-04 09:01:00", "2031-05-04 11:00:00"})
            usage::Note(transaction, 1, {usage::Kind::kOrder, "", time, false});
    });
    EXPECT_THAT(Text({20, 7}), HasSubstr("\nzelvek_authority_orders{authority=\"ambrin\"} 2\n"));
    EXPECT_THAT(Text({20, 7}), HasSubstr("\nzelvek_authority_orders_limit 7\n"));
}

// Behaviour: Metrics are served at /metrics alone, and only where no other machine can ask
TEST_P(Metrics, AreServedToThisMachineAlone) {
    metrics::Endpoint endpoint(store(), "127.0.0.1:0", {});
    const std::string answer = Get(endpoint.Port(), "GET /metrics");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_THAT(answer, HasSubstr("\nzelvek_jobs{state=\"waiting\"} 0\n"));
    endpoint.Change({20, 7});
    EXPECT_THAT(Get(endpoint.Port(), "GET /metrics"), HasSubstr("\nzelvek_authority_orders_limit 7\n"));
    EXPECT_THAT(Get(endpoint.Port(), "GET /"), StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(Get(endpoint.Port(), "POST /metrics"), StartsWith("HTTP/1.1 404 "));
    for (const char* address : {"127.0.0.1:1", "127.9.9.9:1", "[::1]:1"})
        EXPECT_NO_THROW(metrics::CheckAddress(address)) << address;
    for (const char* address :
         {":1", "0.0.0.0:1", "[::]:1", "192.0.2.1:1", "128.0.0.1:1", "localhost:1", "1", ""})
        EXPECT_THROW(metrics::CheckAddress(address), Error) << address;
}

}  // namespace

}  // namespace zelvek::testing
