// What an administrator does with jobs at the command line: looks for them, edits, pauses and removes them.
#include "job_commands.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace zelvek::testing {

namespace {

// Behaviours of: Command line

// Behaviour: Jobs are listed by what needs attention: stopped ones, failing ones, waiting ones, runs,
// installed
//   certificates by their end, paused ones
TEST_F(JobCommands, JobsAreListedByWhatNeedsAttention) {
    Start();
    AddOfEveryState();
    EXPECT_EQ(Listed(), "7 6 5 4 3 2 1");
    EXPECT_EQ(Listed({"--state", "all"}), "7 6 5 4 3 2 1");
    const std::string table = Zelvek({"job", "list"}).out;
    EXPECT_NE(table.find("ID  CERTIFICATE  USER  CHECK  STATE     EXPIRES     NEXT STEP\n"),
              std::string::npos)
        << table;
    EXPECT_NE(
        table.find("7   stopped      anna  http   failed                begins anew 2997-01-01 10:20 UTC "
                   "(3 failures)\n"),
        std::string::npos)
        << table;
    EXPECT_NE(table.find("runs now (2 failures)\n"), std::string::npos) << table;
    EXPECT_NE(table.find("renews 2999-02-03\n"), std::string::npos) << table;
    EXPECT_NE(table.find("1   paused       anna  http   paused                none until it is resumed\n"),
              std::string::npos)
        << table;
}

// Behaviour: A list of jobs has those of a state, of a user, with a name, or whose certificates end soon
TEST_F(JobCommands, JobsAreFoundByWhatTheyAre) {
    Start();
    AddOfEveryState();
    AddJob({{"domain", "www.bücher.example"}, {"aliases", "early.example"}, {"user_name", "bob"}});
    const std::map<std::vector<std::string>, std::string> lists{
        {{"--state", "failed"}, "7"},
        {{"--state", "waiting"}, "6 5 8 4"},
        {{"--state", "due"}, "6 8"},
        {{"--state", "running"}, ""},
        {{"--state", "verified"}, "3 2"},
        {{"--state", "paused"}, "1"},
        {{"--state", "expiring"}, "6 3"},
        {{"--state", "waiting", "--user", "anna"}, "4 5 6"},
        {{"--user", "anna"}, "7 4 5 6 2 3 1"},
        {{"--user", "bob"}, "8"},
        {{"--expires-within", "5"}, "6"},
        {{"--expires-within", "100"}, "6 3 2"},
        {{"--expires-within", "100", "--user", "bob"}, ""},
        {{"--name", "EARLY.example"}, "3 8"},
        {{"--name", "early.example", "--user", "bob"}, "8"},
        {{"--name", "early.example", "--limit", "1"}, "3"},
        {{"--name", "www.bücher.example"}, "8"},
        {{"--name", "www.xn--bcher-kva.example"}, "8"},
        {{"--name", "bücher.example"}, ""}};
    for (const auto& [options, ids] : lists)
        EXPECT_EQ(Listed(options), ids) << ::testing::PrintToString(options);
    EXPECT_EQ(ErrorOfCommand({"job", "list", "--state", "failed", "--name", "a.example"}),
              "zelvek: --state, --name and --expires-within: choose one\n");
    EXPECT_EQ(ErrorOf("func=zelvek.job.attention&state=perhaps"), "value");
    EXPECT_EQ(ErrorOf("func=zelvek.job.attention&state=failed&name=a.example"), "value");
    EXPECT_EQ(ErrorOf("func=zelvek.job.attention&expires_within=-1"), "value");
    EXPECT_EQ(ErrorOf("func=zelvek.job.attention&limit=1001"), "value");
}

// Behaviour: A list by attention goes on after a job, wherever that stands, whatever the size of the pages
TEST_F(JobCommands, AListGoesOnAfterAJob) {
    Start();
    AddOfEveryState();
    EXPECT_EQ(Listed({"--limit", "3"}), "7 6 5");
    EXPECT_EQ(Listed({"--limit", "3", "--after", "5"}), "4 3 2");
    EXPECT_EQ(Listed({"--after", "2"}), "1");
    EXPECT_EQ(Listed({"--after", "1"}), "");
    EXPECT_EQ(Listed({"--user", "anna", "--after", "5"}), "6 2 3 1");
    std::string place, found;
    for (int page = 0; page < 8; ++page) {
        const auto answer = Ask("func=zelvek.job.attention&limit=1", {{"after", place}});
        for (const auto& job : answer.xml().GetNodes("/doc/elem")) {
            place = job.Value("place");
            found += job.Value("id");
        }
    }
    EXPECT_EQ(found, "7654321");
    EXPECT_EQ(ErrorOfCommand({"job", "list", "--after", "99"}), "zelvek: there is no job 99\n");
    for (const char* wrong : {"x", "9/x/1", "0/1", "/", "0//", "0//x", "-1//1"})
        EXPECT_EQ(ErrorOf("func=zelvek.job.attention", {{"after", wrong}}), "value") << wrong;
}

// Behaviour: The status shows the service, how many jobs are in which state, what expires next and why jobs
//   failed
TEST_F(JobCommands, TheStatusIsOneScreen) {
    Start();
    AddOfEveryState();
    const Json::Value status = Json({"status"});
    EXPECT_EQ(status["database"].asString(), Database().string());
    EXPECT_FALSE(status["scheduler"].asBool());
    EXPECT_EQ(status["runs"].asInt(), 0);
    EXPECT_FALSE(status["version"].asString().empty());
    EXPECT_EQ(status["authority"].asString().substr(0, 8), "https://");
    for (const auto& [state, count] : std::map<std::string, int>{
             {"failed", 1}, {"failing", 2}, {"waiting", 1}, {"running", 0}, {"verified", 2}, {"paused", 1}})
        EXPECT_EQ(status["jobs"][state].asInt(), count) << state;
    ASSERT_EQ(status["ending"].size(), 3U);
    EXPECT_EQ(status["ending"][0]["id"].asInt(), 6);
    ASSERT_EQ(status["failures"].size(), 3U);
    EXPECT_EQ(status["failures"][0]["last_error"].asString(),
              "the authority refuses a name's proof: Return code: 403");
    EXPECT_EQ(status["failures"][1]["last_error"].asString(), "the run ended without saying why");
    EXPECT_EQ(status["failures"][2]["last_error"].asString(), "the panel says no");
    const std::string screen = Zelvek({"status"}).out;
    for (const std::string line :
         {"scheduler        off: no run starts by itself\n", "default account  none yet\n",
          "jobs             1 failed, 2 failing, 1 waiting, 0 running, 2 verified, 1 paused\n",
          "\nWhat expires next\nID  CERTIFICATE  USER  EXPIRES\n6   again        anna  ",
          "\nWhat failed\nID  CERTIFICATE  USER  WHY\n7   stopped      anna  the authority refuses a name's "
          "proof"}) {
        EXPECT_NE(screen.find(line), std::string::npos) << screen;
    }
    const std::string id = AddJob({{"domain", "run.example"}, {"certname", "run"}});
    ReadJob(id);
    EXPECT_EQ(Json({"status"})["runs"].asInt(), 1);
    EXPECT_EQ(Json({"status"})["jobs"]["running"].asInt(), 1);
    Write(id, {{"kid", "https://ca.example/1"}, {"acmekey", "SECRET"}, {"update_default_account", "on"}});
    const std::string account = Zelvek({"status"}).out;
    EXPECT_NE(account.find("default account  https://ca.example/1\n"), std::string::npos);
    EXPECT_EQ(account.find("SECRET"), std::string::npos);
}

// Behaviour: A job that is edited begins anew with what is said, and keeps all else, its certificate's times
// too
TEST_F(JobCommands, AnEditedJobBeginsAnew) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    Zelvek({"job", "add", "shop.example", "--user", "anna", "--alias", "www.shop.example", "--alias",
            "a.shop.example", "--csr", "key_type=ec", "--csr", "country=DE", "--res-name", "team",
            "--max-account-checks", "5", "--skip-account-check"});
    ReadJob("1");
    Write("1", {{"verified", "on"}, {"kid", "k"}, {"acmekey", "SECRET"}});
    Change(
        "UPDATE job SET expires = '2999-01-01 00:00:00', renew = '2998-01-01 00:00:00', failures = 3,"
        " time_started = '2026-01-01 00:00:00' WHERE id = 1");
    EXPECT_EQ(Zelvek({"job", "edit", "1", "--alias", "b.shop.example"}).out,
              "job 1 edited: it begins anew, its certificate stays until the new one is there\n");
    Json::Value job = Json({"job", "show", "1"});
    EXPECT_EQ(job["aliases"][1].asString(), "b.shop.example");
    EXPECT_FALSE(job["verified"].asBool());
    EXPECT_EQ(job["failures"].asInt(), 0);
    EXPECT_EQ(job["expires"].asString(), "2999-01-01T00:00:00Z");
    EXPECT_EQ(job["kid"].asString(), "k");
    EXPECT_NE(job["time_started"].asString(), "2026-01-01T00:00:00Z");
    EXPECT_EQ(job["events"][0]["event"].asString(), "job_edited");
    EXPECT_EQ(Listed({"--name", "b.shop.example"}), "1");
    EXPECT_EQ(Listed({"--name", "a.shop.example"}), "");
    const auto record = [] { return Ask("func=ambrin.data.edit&elid=1&out=xml"); };
    EXPECT_EQ(record().value("csr_internal_request"), "certname_ascii=shop.example&country=DE&key_type=ec");
    EXPECT_EQ(record().value("max_account_check_attempts"), "5");
    EXPECT_EQ(record().value("skip_account_check"), "on");
    EXPECT_EQ(record().value("res_name"), "team");
    EXPECT_EQ(record().value("acmekey"), "SECRET");
    Write("1", {{"kid", "k"}, {"acmekey", "SECRET"}});

    EXPECT_EQ(Json({"job", "edit", "1", "--name", "www.shop.example", "--no-aliases", "--check", "dns",
                    "--csr", "key_size=4096", "--res-name", "others"})["aliases"][0]
                  .asString(),
              "www.shop.example");
    EXPECT_EQ(record().value("csr_internal_request"), "certname_ascii=shop.example&key_size=4096");
    EXPECT_EQ(record().value("check_type"), "dns");
    EXPECT_EQ(record().value("res_name"), "others");
    EXPECT_EQ(record().value("certname"), "shop.example");
    Write("1", {{"kid", "k"}, {"acmekey", "SECRET"}});
    EXPECT_EQ(Json({"job", "edit", "1", "--plain-csr"})["domain"].asString(), "www.shop.example");
    EXPECT_EQ(record().value("csr_internal_request"), "certname_ascii=shop.example");
}

// Behaviour: What could not be added is refused when a job is edited, too, and the job stays as it was
TEST_F(JobCommands, AnEditIsCheckedLikeANewJob) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    Zelvek({"domain", "add", "blog.example", "--user", "bob"});
    Zelvek({"job", "add", "other.example", "--user", "anna", "--foreign-names"});
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--alias", "blog.example"},
                                               {"--alias", "*.shop.example"},
                                               {"--alias", "no name"},
                                               {"--name", "-"},
                                               {"--csr", "key_type=dsa"},
                                               {"--csr", "colour=red"},
                                               {"--foreign-names"},
                                               {}}) {
        std::vector<std::string> words{"job", "edit", "1"};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_NE(ErrorOfCommand(words), "");
        EXPECT_EQ(Json({"job", "show", "1"})["events"].size(), 0U);
    }
    EXPECT_EQ(ErrorOf("func=zelvek.job.edit&elid=1&certname=x"), "value");
    EXPECT_EQ(ErrorOf("func=zelvek.job.edit&elid=1&check_type=http&user_name=bob"), "missed");
    EXPECT_EQ(ErrorOf("func=zelvek.job.edit&elid=9&domain=shop.example"), "missed");
    EXPECT_EQ(Zelvek({"job", "edit", "1", "--alias", "shop.example"}).status, 0)
        << "a name that it has already is not asked for its owner";
    EXPECT_EQ(Zelvek({"job", "edit", "1", "--alias", "blog.example", "--foreign-names"}).status, 0);
    ReadJob("1");
    EXPECT_EQ(ErrorOfCommand({"job", "edit", "1", "--check", "dns"}), "zelvek: job 1 is running already\n");
}

// Behaviour: A paused job is not run, by hand neither, until it is resumed
TEST_F(JobCommands, APausedJobIsNotRun) {
    Start();
    const std::string id = AddJob({{"certname", "installs"}});
    EXPECT_EQ(Zelvek({"job", "pause", id}).out, "job 1 paused: no run of it begins until it is resumed\n");
    const std::string refused = "zelvek: job 1 is paused; \"zelvek job resume 1\" ends that\n";
    EXPECT_EQ(ErrorOfCommand({"job", "run", id, "--plugin", TEST_PLUGIN}), refused);
    EXPECT_EQ(ErrorOfCommand({"job", "retry", id}), refused);
    EXPECT_EQ(ErrorOfCommand({"job", "renew", id}), refused);
    EXPECT_EQ(Zelvek({"job", "retry", "--all"}).out, "0 jobs tried again\n");
    EXPECT_EQ(ErrorOf("func=zelvek.job.pause&elid=9"), "missed");
    EXPECT_EQ(ErrorOf("func=zelvek.job.resume&elid=9"), "missed");
    Stop();
    Start({{"--scheduler", "on"}, {"--scheduler-interval", "0.05"}});
    const std::string other = AddJob({{"domain", "other.example"}, {"certname", "installs-2"}});
    EXPECT_TRUE(
        Eventually([&] { return Ask("func=zelvek.job.show&elid=" + other).value("verified") == "on"; }));
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("attempt_count"), "0")
        << "the one that was added first";
    EXPECT_EQ(Json({"job", "resume", id})["paused"].asBool(), false);
    EXPECT_TRUE(Eventually([&] { return Ask("func=zelvek.job.show&elid=" + id).value("verified") == "on"; }));
}

/// What a command writes to a terminal of that width.
std::string OnTerminal(const std::vector<std::string>& words, unsigned short columns) {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(::grantpt(terminal) + ::unlockpt(terminal), 0);
    const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(::ioctl(end, TIOCSWINSZ, &size), 0);
    std::vector<const char*> all{"zelvek"};
    for (const std::string& word : words) all.push_back(word.c_str());
    all.push_back(nullptr);
    EXPECT_EQ(InChild([&] {
                  ::dup2(end, STDOUT_FILENO);
                  ::execv(ZELVEK_BINARY, const_cast<char* const*>(all.data()));
              }),
              0);
    std::string text(4000, ' ');
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(terminal, text.data(), text.size()), 0)));
    ::close(end);
    ::close(terminal);
    return text;
}

// Behaviour: On a terminal no table is wider ...
TEST_F(JobCommands, TablesFitIntoATerminal) {
    Start();
    const std::string name(60, 'x');
    const std::string id = AddJob({{"certname", name}});
    ReadJob(id);
    Write(id, {{"log", "2026-01-01 00:00:00,failed,challenge_fail,<p><b>Details:</b> " +
                           std::string(150, 'y') + "</p>"}});
    const auto widest = [](const std::string& text) {
        std::istringstream lines(text);
        std::size_t most = 0;
        for (std::string line; std::getline(lines, line);)
            most = std::max(most, line.find_last_not_of("\r\n") + 1);
        return most;
    };
    for (const auto& [columns, most] :
         std::map<unsigned short, std::size_t>{{80, 80}, {200, 100}, {0, 100}}) {
        const std::string shown = OnTerminal({"job", "show", id}, columns);
        EXPECT_GT(shown.size(), 200U);
        EXPECT_LE(widest(shown), most) << shown;
        EXPECT_EQ(shown.find('<'), std::string::npos) << shown;
        EXPECT_LE(widest(OnTerminal({"job", "list"}, columns)), most + 2) << "\"…\" has three bytes";
    }
    EXPECT_NE(Zelvek({"job", "list"}).out.find(name), std::string::npos) << "whole where it is no terminal";
}

// Behaviour: A domain is removed once no job needs it; those that do are named
TEST_F(JobCommands, ADomainThatJobsNeedStays) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    Zelvek({"domain", "add", "b\u00fccher.shop.example", "--user", "anna"});
    Zelvek({"job", "add", "www.b\u00fccher.shop.example", "--user", "anna"});
    Zelvek({"job", "add", "shop.example", "--user", "anna", "--check", "dns", "--alias", "*.shop.example"});
    EXPECT_EQ(ErrorOfCommand({"domain", "remove", "Shop.example"}),
              "zelvek: job 2 has names in the domain \"shop.example\": edit or remove what needs it before"
              " (\"zelvek job edit\", \"zelvek job remove\")\n");
    AddJob({{"domain", "shop.example"}, {"user_name", "bob"}});
    AddJob({{"domain", "a.shop.example"}});
    EXPECT_EQ(ErrorOfCommand({"domain", "remove", "shop.example"}).find("zelvek: jobs 2, 4 have names"), 0U);
    EXPECT_EQ(Json({"domain", "list"}).size(), 2U);
    Zelvek({"job", "remove", "2"});
    Zelvek({"job", "remove", "4"});
    EXPECT_EQ(Zelvek({"domain", "remove", "shop.example"}).out, "domain shop.example removed\n")
        << "job 1's name is in a longer one, job 3 is another user's";
    EXPECT_EQ(ErrorOfCommand({"domain", "remove", "shop.example"}),
              "zelvek: there is no domain \"shop.example\"\n");
    EXPECT_NE(ErrorOfCommand({"domain", "remove", "xn--bcher-kva.shop.example"}), "");
    Zelvek({"job", "remove", "1"});
    EXPECT_EQ(Json({"domain", "remove", "xn--bcher-kva.shop.example"})["name"].asString(),
              "xn--bcher-kva.shop.example");
    EXPECT_EQ(Json({"domain", "list"}).size(), 0U);
}

}  // namespace

}  // namespace zelvek::testing
