// The plug-in's unit test. The double stands in the framework's place: each test says what the service, the
// site and the tools answer, runs the plug-in and looks at everything it asked. Nothing leaves the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "double/vek_double.h"
#include "vek/launcher.h"
#include "vek/proc.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRead[] = "func=ambrin.data.edit&elid=7&out=xml";
constexpr char kWriteBack[] = "func=ambrin.data.edit&sok=ok&elid=7&log=";

class SiteCheck : public testing::Test {
protected:
    SiteCheck() {
        world.AlwaysPanel(kRead,
                          [](const std::string&) { return "<doc><domain>shop.example</domain></doc>"; });
        world.AlwaysPanel(kWriteBack + std::string("*"), [](const std::string&) { return "<doc/>"; });
    }

    static int Run(std::string id) {
        std::string program = "site-check";
        char* arguments[] = {program.data(), id.data(), nullptr};
        return zelmain(2, arguments);
    }

    vek_double::World world;
};

// A site that answers is noted in the job's history with the digest of its page.
TEST_F(SiteCheck, NotesTheDigestOfAPageThatIsThere) {
    world.AnswerHttp("GET http://shop.example/", {200, "", "page", ""});
    world.AnswerChild("sha256sum", {"abc  -\n", 0});
    EXPECT_EQ(Run("7"), 0);
    EXPECT_THAT(
        world.Lines({"panel", "http", "child", "input"}),
        ElementsAre(std::string("panel: ") + kRead, "http: GET http://shop.example/", "child: sha256sum",
                    "input: page",
                    std::string("panel: ") + kWriteBack +
                        "2030-06-01%2012%3A00%3A00%2Csuccess%2Csite_check%2C200%20abc&processing=off"));
}

// A site that refuses is a failure in the job's history.
TEST_F(SiteCheck, NotesAStatusThatIsAnError) {
    world.AnswerHttp("GET http://shop.example/", {503, "", "", ""});
    world.AnswerChild("sha256sum", {"abc  -\n", 0});
    EXPECT_EQ(Run("7"), 1);
    EXPECT_THAT(world.Lines({"panel"}).back(), testing::HasSubstr("%2Cfailed%2Csite_check%2C503%20abc&"));
}

// So is one that cannot be reached.
TEST_F(SiteCheck, NotesAnExchangeThatFails) {
    world.FailHttp("GET http://shop.example/", "no route");
    EXPECT_EQ(Run("7"), 1);
    EXPECT_THAT(world.Lines({"panel"}).back(), testing::HasSubstr("%2Cfailed%2Csite_check%2Cno%20route&"));
}

// An interrupted look is no failure, and the record is written back all the same.
TEST_F(SiteCheck, WritesTheRecordBackWhenItIsInterrupted) {
    world.FailAt("http", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(Run("7"), vek_proc::Interrupted);
    EXPECT_EQ(world.Lines({"panel"}).back(), std::string("panel: ") + kWriteBack + "&processing=off");
}

// Without a job's number nothing is asked.
TEST_F(SiteCheck, AsksNothingWithoutAJobsNumber) {
    EXPECT_EQ(Run("seven"), 1);
    EXPECT_THAT(world.Lines({"panel", "http", "child"}), IsEmpty());
}

}  // namespace
