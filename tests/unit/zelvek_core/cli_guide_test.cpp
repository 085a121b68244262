// What the command line tells of itself: to shells, as manual pages, and in the packaged file of options.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>

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

CommandText ServeLine() {
    CommandLine line("zelvek", "");
    Command root = line.Root();
    AddServeCommand(root);
    return line.Describe();
}

/// The options that `serve` takes from files, with the time when another value takes effect.
std::map<std::string, Effect> ServiceOptions() {
    std::map<std::string, Effect> options;
    for (const CommandText& command : ServeLine().commands) {
        for (const OptionText& option : command.options) options[option.name.substr(2)] = option.effect;
    }
    for (const char* of_the_command_line : {"help", "config"}) options.erase(of_the_command_line);
    return options;
}

/// The same as the packaged file has it: in the order of its two parts.
std::map<std::string, Effect> PackagedOptions() {
    std::ifstream file(PACKAGING "/zelvek.conf");
    std::map<std::string, Effect> options;
    Effect effect = Effect::kAtOnce;
    const std::regex option("#?([a-z-]+)=.*");
    for (std::string line; std::getline(file, line);) {
        std::smatch found;
        if (line.starts_with("## What takes effect at a start")) effect = Effect::kAtNextStart;
        if (line.starts_with("## What takes effect at a reload")) effect = Effect::kAtReload;
        if (std::regex_match(line, found, option)) options[found[1]] = effect;
    }
    return options;
}

// Behaviour: The packaged file of options and its manual page have every option of the service, and say which
//   take effect at a reload and which at the next start
TEST(Manual, ThePackagedFileHasEveryOption) {
    EXPECT_EQ(PackagedOptions(), ServiceOptions());
    const std::string page = OptionsPage(ServeLine());
    for (const auto& [name, effect] : PackagedOptions()) {
        EXPECT_NE(effect, Effect::kAtOnce) << name;
        const std::string entry = "\\fB" + std::regex_replace(name, std::regex("-"), "\\-") + "=";
        const std::size_t at = page.find(entry);
        ASSERT_NE(at, std::string::npos) << name;
        const std::string text = page.substr(at, page.find(".TP\n", at) - at);
        EXPECT_EQ(text.find("takes effect at the next start") != std::string::npos,
                  effect == Effect::kAtNextStart)
            << text;
    }
}

}  // namespace

}  // namespace zelvek::cli
