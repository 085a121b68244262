// What the command line tells of itself: to shells, as manual pages, and in the packaged file of options.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "zelvek/cli/completion.h"
#include "zelvek/cli/manual.h"
#include "zelvek/service/serve_command.h"

namespace zelvek::cli {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

CommandText SmallLine() {
    const OptionText json{"--json", "", "One JSON text"};
    const OptionText state{"--state", "TEXT", "In this state alone", "", {"due", "failed"}};
    const OptionText user{"--user", "TEXT", "Of this user"};
    const CommandText list{"list", "Shows jobs", {json, state, user}, {}, {}};
    const CommandText show{
        "show", "Shows a job", {json}, {{"ID", "INT", "The job's number", "", {}, true}}, {}};
    return {"zelvek", "", {{"--version", "", "The version"}}, {}, {{"job", "Jobs", {}, {}, {list, show}}}};
}

std::vector<std::string> Words(const std::vector<std::string>& words) {
    const auto names = [](const std::string& kind) {
        return std::vector<Candidate>{{kind + "1", "shop.example"}, {kind + "2"}};
    };
    std::vector<std::string> found;
    for (const Candidate& each : Complete(SmallLine(), words, names)) found.push_back(each.word);
    return found;
}

// Behaviours of: Command line

// Behaviour: Shells are told what may stand next: commands, options, the words that an option takes
TEST(Completion, KnowsCommandsOptionsAndChoices) {
    EXPECT_THAT(Words({""}), ElementsAre("job"));
    EXPECT_THAT(Words({"job", ""}), ElementsAre("list", "show"));
    EXPECT_THAT(Words({"job", "sh"}), ElementsAre("show"));
    EXPECT_THAT(Words({"job", "li", "-"}), IsEmpty()) << "there is no such command";
    EXPECT_THAT(Words({"job", "list", "--s"}), ElementsAre("--state"));
    EXPECT_THAT(Words({"job", "list", ""}), ElementsAre("--json", "--state", "--user"));
    EXPECT_THAT(Words({"job", "list", "--state", ""}), ElementsAre("due", "failed"));
    EXPECT_THAT(Words({"job", "list", "--state", "f"}), ElementsAre("failed"));
    EXPECT_THAT(Words({"--"}), ElementsAre("--version"));
}

// Behaviour: Shells are told the names that the running service has, where one of them can stand
TEST(Completion, KnowsTheNamesOfTheService) {
    EXPECT_THAT(Words({"job", "show", ""}), ElementsAre("job1", "job2"));
    EXPECT_THAT(Words({"job", "show", "--json", "job2"}), ElementsAre("job2"));
    EXPECT_THAT(Words({"job", "show", "7", "--"}), ElementsAre("--json"));
    EXPECT_THAT(Words({"job", "list", "--user", ""}), ElementsAre("user1", "user2"));
}

// Behaviour: The manual pages have every command and every option, as the help describes them
TEST(Manual, HasEveryCommandAndOption) {
    const std::string page = CommandsPage(SmallLine());
    EXPECT_THAT(page, HasSubstr(".SS zelvek job list\nShows jobs.\n"));
    EXPECT_THAT(page, HasSubstr(".SS zelvek job show ID\n"));
    EXPECT_THAT(page, HasSubstr(".TP\n\\fB\\-\\-state\\fR due|failed\nIn this state alone\n"));
    EXPECT_THAT(page, Not(HasSubstr("--")));
}

// Behaviour: No text of the help becomes a request of the manual's formatter
TEST(Manual, TakesNoTextForARequest) {
    CommandText line = SmallLine();
    line.commands[0].commands[0].description = ".so /etc/passwd\n'br \\n";
    EXPECT_THAT(CommandsPage(line), HasSubstr("\n\\&.so /etc/passwd\n.br\n\\&'br \\en.\n"));
}

/// The names of the options that `serve` takes from files.
std::set<std::string> ServiceOptions() {
    CommandLine line("zelvek", "");
    Command root = line.Root();
    AddServeCommand(root);
    std::set<std::string> names;
    for (const CommandText& command : line.Describe().commands) {
        for (const OptionText& option : command.options) names.insert(option.name.substr(2));
    }
    for (const char* of_the_command_line : {"help", "config"}) names.erase(of_the_command_line);
    return names;
}

// Behaviour: The packaged file of options and its manual page have every option of the service
TEST(Manual, ThePackagedFileHasEveryOption) {
    std::ifstream file(PACKAGING "/zelvek.conf");
    std::set<std::string> named;
    const std::regex option("#?([a-z-]+)=.*");
    for (std::string line; std::getline(file, line);) {
        std::smatch found;
        if (std::regex_match(line, found, option)) named.insert(found[1]);
    }
    EXPECT_EQ(named, ServiceOptions());
    CommandLine line("zelvek", "");
    Command root = line.Root();
    AddServeCommand(root);
    const std::string page = OptionsPage(line.Describe());
    for (const std::string& name : named)
        EXPECT_THAT(page, HasSubstr("\\fB" + std::regex_replace(name, std::regex("-"), "\\-") + "=")) << name;
}

}  // namespace

}  // namespace zelvek::cli
