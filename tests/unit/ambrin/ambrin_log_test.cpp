#include "ambrin_log.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class ProgramLog : public JobTest {};

// Behaviours of: Log of a run

// Behaviour: A trace line begins with "ambrin_bin:", the source line and a blank
TEST_F(ProgramLog, TraceLineBeginsWithProgramAndSourceLine) {
    const int line = __LINE__ + 1;
    Trace("cert '%s' of %d", "shop.example", 3);
    EXPECT_THAT(world.Lines(),
                ElementsAre("log: 9 ambrin_bin:" + std::to_string(line) + " cert 'shop.example' of 3"));
    EXPECT_EQ(world.calls().front().detail, "zelvek/sslcert");
}

// Behaviour: A failure line stands alone, without program and line number
TEST_F(ProgramLog, FailureLineStandsAlone) {
    LogFailure("Registration failed");
    LogFailure("'%s' cert already verified", "shop.example");
    EXPECT_THAT(world.Lines(),
                ElementsAre("log: 4 Registration failed", "log: 4 'shop.example' cert already verified"));
}

// Behaviour: Nothing is written at a level that is off
TEST_F(ProgramLog, NothingIsWrittenAtALevelThatIsOff) {
    world.SetLogLevel(8);
    Trace("cert '%s'", "shop.example");
    EXPECT_THAT(world.Lines(), IsEmpty());
    world.SetLogLevel(3);
    LogFailure("Registration failed");
    EXPECT_THAT(world.Lines(), IsEmpty());
}

// Behaviour: Percent signs in a value stay themselves
TEST_F(ProgramLog, PercentSignsOfValuesStayThemselves) {
    Trace("body '%s'", "%s%d%%");
    EXPECT_THAT(world.Lines(), ElementsAre(MatchesRegex("log: 9 ambrin_bin:[0-9]+ body '%s%d%%'")));
}

}  // namespace
