// What an examination of a failed check finds.
#include "zelvek/examination/examiner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "integration/vek/server.h"
#include "integration/zelvek_parts/name_server.h"
#include "vek/str.h"
#include "zelvek/base/finding_state.h"
#include "zelvek/base/tool.h"
#include "zelvek/store/jobs.h"

namespace zelvek {
namespace {

using findings::Finding;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using vek_test::Connection;
using vek_test::Server;

class Examination : public ::testing::Test {
protected:
    Examination() : store_(folder_.path() / "zelvek.db"), publisher_(store_, Answers(), nullptr) {
        std::filesystem::create_directory(Answers());
    }

    std::filesystem::path Answers() const { return folder_.path() / "answers"; }

    static parts::NameServer& Dns() {
        static parts::NameServer server;
        return server;
    }

    /// Changes the zone example.test.
    static void Update(const std::string& change) {
        const std::string port = std::to_string(Dns().port());
        const ToolRun run =
            RunTool("nsupdate -k " + Dns().key().string(),
                    "server 127.0.0.1 " + port + "\nzone example.test.\n" + change + "\nsend\n",
                    std::chrono::seconds{30});
        ASSERT_EQ(run.status, 0) << run.output;
    }

    /// A web server that serves the answer files, or just what `instead` says.
    Server::Handler Serves(const std::string& instead = "") {
        return [this, instead](Connection& connection) {
            std::string line = connection.ReadRequest().head;
            requests_.push_back(line);
            str::GetWord(line, ' ');
            const std::string path = str::GetWord(line, ' ');
            const auto file = Answers() / std::filesystem::path(path).filename();
            if (!instead.empty()) {
                connection.Write(instead);
            } else {
                connection.Write(vek_test::Answer(200, "", parts::Content(file) + "\n"));
            }
        };
    }

    int AddJob(const std::string& names, const std::string& check = "http") {
        Job job;
        job.certname = names;
        job.domain = names;
        job.aliases = names;
        job.user_name = "anna";
        job.check_type = check;
        job.time_started = job.due = "2026-01-01 00:00:00";
        Transaction transaction(store_);
        const int id = jobs::Add(transaction, job);
        findings::Ask(transaction, id, "2026-01-01 00:00:00");
        transaction.Commit();
        return id;
    }

    void Publish(int job, const std::string& name, const std::string& value) {
        Transaction transaction(store_);
        publications::Publication entry;
        entry.item = {"example.test", name, value};
        entry.user_name = "anna";
        entry.job = job;
        publications::Restore(transaction, entry);
        transaction.Commit();
    }

    std::vector<Finding> Examine(int job, int web_port = 1, bool public_only = false, int dns_port = 0) {
        const Process self = FindProcess(::getpid()).value();
        Examiner examiner(store_, publisher_,
                          {{"127.0.0.1"}, dns_port == 0 ? Dns().port() : dns_port, web_port, public_only},
                          self);
        examiner.ExamineSome();
        Transaction transaction(store_);
        return findings::Of(transaction, job);
    }

    static std::string Text(const Finding& finding) {
        return finding.name + "|" + finding.place + "|" + finding.state + "|" + finding.detail;
    }

    static std::vector<std::string> Texts(const std::vector<Finding>& findings) {
        std::vector<std::string> texts;
        for (const Finding& finding : findings) texts.push_back(Text(finding));
        return texts;
    }

    std::vector<std::string> requests_;
    parts::TempFolder folder_;
    Store store_;
    Publisher publisher_;
};

// Behaviours of: What people are told about a job

// Behaviour: An http-01 job whose name was not proved is examined: an answer file of the service's own is
//   fetched from every address that the public DNS has for the name, and is gone afterwards
TEST_F(Examination, FetchesAnAnswerFromEveryAddressOfAName) {
    Update("update add www.example.test. 5 A 127.0.0.1\nupdate add www.example.test. 5 A 127.0.0.2");
    const Server server(Serves());
    const int job = AddJob("www.example.test");
    const auto found = Texts(Examine(job, server.port()));
    ASSERT_EQ(found.size(), 2U);
    EXPECT_THAT(found, ::testing::Contains("www.example.test|127.0.0.1|there|"));
    EXPECT_THAT(found, ::testing::Contains(StartsWith("www.example.test|127.0.0.2|unreached|")))
        << "the server listens at one address alone";
    EXPECT_THAT(parts::Entries(Answers()), IsEmpty());
    ASSERT_EQ(requests_.size(), 1U);
    EXPECT_THAT(requests_[0], StartsWith("GET /.well-known/acme-challenge/probe-"));
    EXPECT_THAT(requests_[0], HasSubstr("\r\nHost: www.example.test:"));
    Update("update delete www.example.test.");
}

// Behaviour: What stands there instead is told with status and first line, without markup, controls and
//   more than 100 characters; a redirect with where it leads, which nobody follows
TEST_F(Examination, TellsWhatStandsThereInstead) {
    Update("update add other.example.test. 5 A 127.0.0.1");
    const auto found = [&](const std::string& answer) {
        const Server server(Serves(answer));
        const auto findings = Examine(AddJob("other.example.test"), server.port());
        return findings.size() == 1 ? findings[0].state + "|" + findings[0].detail : "not one finding";
    };
    const auto page = [](const std::string& status, const std::string& body, const std::string& header = "") {
        return "HTTP/1.1 " + status + "\r\n" + header + "Content-Length: " + std::to_string(body.size()) +
               "\r\nConnection: close\r\n\r\n" + body;
    };
    EXPECT_EQ(found(page("404 Not Found", "<html>\n<head><title>404 Not Found</title></head>\n")),
              "other|404 Not Found");
    EXPECT_EQ(found(page("200 OK", "\n<h1>Another &amp;\x1b[2J site</h1>\n<p>more</p>")),
              "other|200 OK: Another &?[2J site");
    EXPECT_EQ(found(page("200 OK", std::string(5000, 'x'))),
              "other|200 OK: " + std::string(100, 'x') + "...");
    EXPECT_EQ(found(page("301 Moved", "", "Location: https://example.test/a\r\n")),
              "redirect|https://example.test/a");
    EXPECT_THAT(found(page("200 OK", std::string(1 << 20, 'x'))), HasSubstr("unreached|")) << "too large";
    EXPECT_THAT(found("nonsense\r\n\r\n"), StartsWith("unreached|"));
    Update("update delete other.example.test.");
}

// Behaviour: A name without an address, with a private one, and name servers that do not answer are told, and
//   nothing is fetched or published for them
TEST_F(Examination, FetchesNothingFromNowhere) {
    Update("update add private.example.test. 5 A 127.0.0.1");
    const Server server(Serves());
    EXPECT_THAT(Texts(Examine(AddJob("none.example.test"), server.port())),
                ElementsAre("none.example.test||no_address|"));
    EXPECT_THAT(Texts(Examine(AddJob("private.example.test"), server.port(), true)),
                ElementsAre("private.example.test|127.0.0.1|not_public|"));
    EXPECT_THAT(Texts(Examine(AddJob("private.example.test"), server.port(), false, 1)),
                ElementsAre("private.example.test||not_looked_up|"));
    EXPECT_THAT(requests_, IsEmpty());
    Update("update delete private.example.test.");
}

// Behaviour: A dns-01 job whose records are not seen is examined: each name server of the zone is asked for
//   each of them
TEST_F(Examination, AsksEachNameServerForEachRecord) {
    Update(
        "update add _acme-challenge.a.example.test. 5 TXT \"one\"\n"
        "update add example.test. 5 NS ns2.example.test.\nupdate add ns2.example.test. 5 A 127.0.0.2");
    const int job = AddJob("a.example.test", "dns");
    Publish(job, "_acme-challenge.a.example.test", "one");
    Publish(job, "_acme-challenge.a.example.test", "two");
    EXPECT_THAT(Texts(Examine(job)),
                ::testing::UnorderedElementsAre(
                    "_acme-challenge.a.example.test|ns.example.test (127.0.0.1)|there|",
                    "_acme-challenge.a.example.test|ns.example.test (127.0.0.1)|missing|",
                    "_acme-challenge.a.example.test|ns2.example.test (127.0.0.2)|unreached|no answer",
                    "_acme-challenge.a.example.test|ns2.example.test (127.0.0.2)|unreached|no answer"));
    Update(
        "update delete example.test. NS ns2.example.test.\nupdate delete ns2.example.test.\n"
        "update delete _acme-challenge.a.example.test.");
}

// Behaviour: A name server at an address that is not public is told, and not asked
TEST_F(Examination, AsksNoNameServerInsideAPrivateNetwork) {
    const int job = AddJob("a.example.test", "dns");
    Publish(job, "_acme-challenge.a.example.test", "one");
    EXPECT_THAT(Texts(Examine(job, 1, true)), ElementsAre("ns.example.test|127.0.0.1|not_public|"));
}

// Behaviour: A job is examined once for each run that asks for it; one that was removed meanwhile, or has its
//   certificate, keeps no findings
TEST_F(Examination, IsMadeOnceForEachRun) {
    Update("update add once.example.test. 5 A 127.0.0.1");
    int removed = 0;
    const Server server([&](Connection& connection) {
        requests_.push_back(connection.ReadRequest().head);
        if (removed != 0) {
            Transaction transaction(store_);
            jobs::Remove(transaction, removed);
            transaction.Commit();
        }
        connection.Write(vek_test::Answer(404, "", ""));
    });
    const int job = AddJob("once.example.test");
    Examine(job, server.port());
    EXPECT_EQ(Examine(job, server.port()).size(), 1U);
    EXPECT_EQ(requests_.size(), 1U);
    removed = AddJob("once.example.test");
    EXPECT_THAT(Examine(removed, server.port()), IsEmpty());
    EXPECT_EQ(requests_.size(), 2U);
    Update("update delete once.example.test.");
}

// Behaviour: A name server that is no address is refused at the start
TEST(PublicNameServers, AreAddresses) {
    EXPECT_EQ(parts::FailureOf([] {
                  PublicDns({"1.1.1.1", "-x; reboot"});
              }).text,
              "\"-x; reboot\" is no address of a name server");
}

}  // namespace
}  // namespace zelvek
