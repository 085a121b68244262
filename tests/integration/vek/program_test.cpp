// Programs that are run without a shell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "vek/err.h"
#include "vek/proc.h"

namespace {

using vek_proc::Program;

constexpr int kReadApart = vek_proc::kPipeOut | vek_proc::kOwnSession;

std::string OutputOf(const Program& program) { return vek_proc::Execute(program, kReadApart).Str(); }

// Behaviours of: Child processes and sleeps

// Behaviour: A program that is run without a shell gets its words ...
TEST(ProgramWithoutShell, GetsEveryWordAsItIs) {
    const std::vector<std::string> words{"",  "-x", "a b",   "$(id)",       "`id`",
                                         "*", ";",  "'\"\\", "line\nbreak", "\xff"};
    std::vector<std::string> arguments{"%s|"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    std::string expected;
    for (const std::string& word : words) expected += word + "|";
    EXPECT_EQ(OutputOf({"/usr/bin/printf", arguments, {}}), expected);
    EXPECT_EQ(OutputOf({"/usr/bin/printf", {"%s|", std::string("a\0b", 3)}, {}}), "a|")
        << "a NUL byte ends a word";
}

// Behaviour: A program that is run without a shell has just the environment that it is given
TEST(ProgramWithoutShell, HasJustTheEnvironmentThatItIsGiven) {
    setenv("OF_THE_PARENT", "here", 1);
    EXPECT_EQ(OutputOf({"/usr/bin/env", {}, {"ONE=1", "TWO= 2 "}}), "ONE=1\nTWO= 2 \n");
    EXPECT_EQ(OutputOf({"/usr/bin/env", {}, {}}), "");
    unsetenv("OF_THE_PARENT");
}

// Behaviour: What a program that is run without a shell complains of stands in its output
TEST(ProgramWithoutShell, ComplainsInItsOutput) {
    vek_proc::Execute program(Program{"/bin/sh", {"-c", "echo out; echo error >&2; exit 3"}, {}}, kReadApart);
    EXPECT_EQ(program.Str(), "out\nerror\n");
    EXPECT_EQ(program.Result(), 3);
}

// Behaviour: A child that cannot be started is an error ...
TEST(ProgramWithoutShell, ThatCannotBeStartedIsAnError) {
    for (const std::string path : {"/no/such/program", "printf", "/etc/hostname", "/", ""}) {
        try {
            OutputOf({path, {}, {}});
            ADD_FAILURE() << path;
        } catch (const vek_err::Error& error) {
            EXPECT_EQ(error.type(), "start") << path;
        }
    }
}

// Behaviour: A child that runs too long is ended with ...
TEST(ProgramWithoutShell, IsEndedWhenItRunsTooLong) {
    vek_proc::Execute program(Program{"/bin/sleep", {"300"}, {}}, kReadApart);
    program.LimitTime(std::chrono::milliseconds(100));
    EXPECT_EQ(program.Result(), 128 + SIGKILL);
}

}  // namespace
