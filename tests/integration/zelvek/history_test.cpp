// A job's history, appended to by every write-back.
#include "service.h"

namespace zelvek::testing {

namespace {

class History : public ServiceTest {
protected:
    History() { Start(); }

    std::vector<std::string> Events(const std::string& id) {
        std::vector<std::string> events;
        const auto shown = Ask("func=zelvek.job.show&elid=" + id);
        for (const auto& node : shown.xml().GetNodes("/doc/event")) {
            events.push_back(node.Value("time") + "|" + node.Value("state") + "|" + node.Value("event") +
                             "|" + node.Value("detail"));
        }
        return events;
    }
};

// Behaviours of: The job's record (ambrin.data.edit)

// Behaviour: Every run's log is appended to the job's history
TEST_F(History, EveryRunsEntriesAreAppended) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"log", "2026-01-01 00:00:00,processing,challenge_start,;2026-01-01 00:00:01,failed,x,y"}});
    ReadJob(id);
    Write(id, {{"log", ""}});
    ReadJob(id);
    Write(id, {{"log", "2026-01-02 00:00:00,success,cert_recived,"}});
    EXPECT_EQ(Events(id), (std::vector<std::string>{"2026-01-01 00:00:00|processing|challenge_start|",
                                                    "2026-01-01 00:00:01|failed|x|y",
                                                    "2026-01-02 00:00:00|success|cert_recived|"}));
}

// Behaviour: Details hold any text: a log is split only where an entry's time and a comma follow
TEST_F(History, DetailsHoldAnyText) {
    const std::string id = AddJob();
    ReadJob(id);
    const std::string detail = "a;b,c; 2026-01-01, <x> \"q\"\nline & more";
    Write(id, {{"log", "2026-01-01 00:00:00,failed,e," + detail + ";2026-01-01 00:00:02,failed,f,"}});
    EXPECT_EQ(Events(id), (std::vector<std::string>{"2026-01-01 00:00:00|failed|e|" + detail,
                                                    "2026-01-01 00:00:02|failed|f|"}));
}

// Behaviour: A refused write-back adds nothing to the history
TEST_F(History, ARefusedWriteBackAddsNothing) {
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&sok=ok",
                      WriteBack(id, {{"log", "2026-01-01 00:00:00,failed,e,"}, {"verified", "perhaps"}})),
              "value");
    EXPECT_TRUE(Events(id).empty());
}

// Behaviour: Characters that no answer carries are replaced ...
// An authority's words reach the history; they must not cost a run its account key.
TEST_F(History, CharactersThatNoAnswerCarriesCostNoWriteBack) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"kid", "k"}, {"log", "2026-01-01 00:00:00,failed,e,bell\x07 and \xff"}});
    EXPECT_EQ(Events(id),
              std::vector<std::string>{"2026-01-01 00:00:00|failed|e|bell\xef\xbf\xbd and \xef\xbf\xbd"});
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "k");
}

// Behaviour: Of a job's history the newest events are kept, as many as the service is told
TEST_F(History, HasTheNewestEventsAlone) {
    Stop();
    Start({{"--history-entries", "2"}});
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"log",
                "2026-01-01 00:00:00,processing,a,;2026-01-01 00:00:01,processing,b,;"
                "2026-01-01 00:00:02,processing,c,"}});
    const auto shown = Ask("func=zelvek.job.show&elid=" + id);
    const auto events = shown.xml().GetNodes("/doc/event");
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].Value("event"), "b");
    EXPECT_EQ(events[1].Value("event"), "c");
}

// Behaviour: Events and notifications older than their days are forgotten
TEST_F(History, IsForgottenAfterItsDays) {
    Stop();
    Start({{"--history-days", "30"}, {"--notification-entries", "1"}});
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"log", "2001-01-01 00:00:00,processing,old,;2999-01-01 00:00:00,processing,new,"}});
    Ask("func=problems.register&sok=ok&name=n&id=1&level=error");
    Ask("func=problems.register&sok=ok&name=n&id=2&level=error");
    const auto shown = [&] {
        return Ask("func=zelvek.job.show&elid=" + id).xml().GetNodes("/doc/event").size();
    };
    EXPECT_TRUE(Eventually([&] { return shown() == 1; }));
    EXPECT_TRUE(
        Eventually([&] { return Ask("func=zelvek.problem.list").xml().GetNodes("/doc/elem").size() == 1; }));
    EXPECT_EQ(Ask("func=zelvek.problem.list").xml().GetNode("/doc/elem").Value("id"), "2");
}

}  // namespace

}  // namespace zelvek::testing
