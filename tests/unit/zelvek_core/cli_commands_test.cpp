#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "zelvek/base/command_line.h"
#include "zelvek/base/error.h"

namespace zelvek {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A program with the command `do` and one that fails.
class Commands : public ::testing::Test {
protected:
    Commands() {
        Command root = line_.Root();
        Command group = root.AddGroup("group", "Commands");
        Command command = group.AddCommand("do", "Does it", [this] {
            ++done_;
            return 7;
        });
        command.AddConfigFile("--config", "File of options", places_);
        command.AddOption("PLACE", place_, "Where");
        command.AddOption("--text", text_, "A text").OneOf({"one", "two words"});
        command.AddOption("--number", number_, "A number").Between(1, 9);
        command.AddOption("--most", most_, "Perhaps a number").Positive();
        command.AddOption("--many", many_, "Texts").Check([](const std::string& text) {
            return text == "bad" ? "it is bad" : std::string();
        });
        command.AddOption("--pause", pause_, "Seconds");
        command.AddFlag("--flag", flag_, "A flag");
        command.AddSwitch("--switch", switch_, "A switch");
        root.AddCommand("fail", "Fails", []() -> int { throw Error(Code::kIo, "cannot write a\nfile"); });
    }
    ~Commands() override { ::unlink(file_.c_str()); }

    int Run(std::vector<const char*> words) {
        words.insert(words.begin(), "program");
        ::testing::internal::CaptureStderr();
        ::testing::internal::CaptureStdout();
        const int status = line_.Run(static_cast<int>(words.size()), words.data());
        out_ = ::testing::internal::GetCapturedStdout();
        err_ = ::testing::internal::GetCapturedStderr();
        return status;
    }

    CommandLine line_{"program", "What it is"};
    std::filesystem::path place_ = "/here";
    std::string text_ = "one";
    int number_ = 5;
    std::optional<int> most_;
    std::vector<std::string> many_;
    milliseconds pause_{1500};
    std::map<std::string, std::string> places_;
    bool flag_ = false;
    bool switch_ = true;
    int done_ = 0;
    std::string out_, err_;
    std::string file_ = (std::filesystem::temp_directory_path() / ("commands." + std::to_string(::getpid())));
};

// Behaviours of: Command line

// Behaviour: A command does what it is for, and a group of commands wants one of them
TEST_F(Commands, DoWhatTheyAreForAndNothingElse) {
    EXPECT_EQ(Run({"group", "do"}), 7);
    EXPECT_EQ(done_, 1);
    EXPECT_EQ(place_, "/here");
    EXPECT_EQ(number_, 5);
    EXPECT_EQ(most_, std::nullopt);
    EXPECT_TRUE(switch_);
    EXPECT_EQ(out_ + err_, "");
}

// Behaviour: Options take texts, numbers, seconds with decimals, lists and switches
TEST_F(Commands, TakeValuesOfEveryKind) {
    EXPECT_EQ(Run({"group", "do", "--many", "a", "--many", "b c", "/there", "--text", "two words", "--number",
                   "9", "--most", "3", "--pause", "0.25", "--flag", "--switch", "off"}),
              7);
    EXPECT_EQ(place_, "/there");
    EXPECT_EQ(text_, "two words");
    EXPECT_EQ(number_, 9);
    EXPECT_EQ(most_, 3);
    EXPECT_THAT(many_, ElementsAre("a", "b c"));
    EXPECT_EQ(pause_, milliseconds(250));
    EXPECT_TRUE(flag_);
    EXPECT_FALSE(switch_);
}

// Behaviour: An option refuses a value that cannot be, with its name
TEST_F(Commands, RefuseWhatCannotBe) {
    for (const std::vector<const char*>& words :
         std::vector<std::vector<const char*>>{{},
                                               {"group"},
                                               {"nothing"},
                                               {"group", "do", "--text", "three"},
                                               {"group", "do", "--number", "10"},
                                               {"group", "do", "--number", "x"},
                                               {"group", "do", "--most", "0"},
                                               {"group", "do", "--many", "bad"},
                                               {"group", "do", "--pause", "0"},
                                               {"group", "do", "--pause", "nan"},
                                               {"group", "do", "--pause", "inf"},
                                               {"group", "do", "--switch", "perhaps"},
                                               {"group", "do", "here", "there"}}) {
        EXPECT_EQ(Run(words), kUsage);
        EXPECT_NE(err_, "");
        EXPECT_EQ(out_, "");
    }
    EXPECT_EQ(done_, 0);
}

// Behaviour: A refused value cannot steer the terminal
TEST_F(Commands, TellNoControlCharacters) {
    EXPECT_EQ(Run({"group", "do", "--text", "\033[31m\u202e"}), kUsage);
    EXPECT_EQ(err_.find_first_of("\033"), std::string::npos);
    EXPECT_EQ(err_.find("\u202e"), std::string::npos);
    EXPECT_THAT(err_, HasSubstr("[31m"));
}

// Behaviour: The help tells every option with its default
TEST_F(Commands, TellTheirOptionsAndDefaults) {
    EXPECT_EQ(Run({"group", "do", "--help"}), kSuccess);
    for (const char* text :
         {"Does it", "PLACE TEXT=/here", "--text TEXT:{one,two words}=one", "--number INT:INT in [1 - 9]=5",
          "--most INT:POSITIVE ", "=1.5", "--switch TEXT:{on,off}=on"}) {
        EXPECT_THAT(out_, HasSubstr(text));
    }
    EXPECT_EQ(done_, 0);
}

// Behaviour: A file of options holds where the command line says nothing
TEST_F(Commands, TakeFromAFileWhatIsNotSaid) {
    std::ofstream(file_) << "number=2\ntext=two words\nmany=a\nswitch=off\n";
    EXPECT_EQ(Run({"group", "do", "--config", file_.c_str(), "--number", "3"}), 7);
    EXPECT_EQ(number_, 3);
    EXPECT_EQ(text_, "two words");
    EXPECT_THAT(many_, ElementsAre("a"));
    EXPECT_FALSE(switch_);
}

// Behaviour: A file of options with a mistake is refused
TEST_F(Commands, RefuseAFileWithMistakes) {
    for (const char* line : {"numbers=2", "number=10", "number=x", "config=x", "help=1", "text=\"one\"",
                             "number", "[section]", "=2", "most=1\nmost=2", "number=\0331"}) {
        std::ofstream(file_) << "# options\n\n" << line << "\n";
        EXPECT_EQ(Run({"group", "do", "--config", file_.c_str()}), kUsage) << line;
        const int mistake = std::string(line).find('\n') == std::string::npos ? 3 : 4;
        EXPECT_THAT(err_, HasSubstr(file_ + ":" + std::to_string(mistake) + ": ")) << line;
    }
    EXPECT_EQ(done_, 0);
}

// Behaviour: What stands after "=" in a file of options reaches the option as it stands, but for blanks
// around it
TEST_F(Commands, TakeEachValueOfAFileAsItStands) {
    const std::vector<std::string> values{R"(sh -c "touch X")", "a,b", "[ a, b ]", "one # two",
                                          "'x' = \"y",          "",    "\\n"};
    std::ofstream file(file_);
    for (const std::string& value : values) file << " many = " << value << " \r\n";
    file.close();
    EXPECT_EQ(Run({"group", "do", "--config", file_.c_str()}), 7) << err_;
    EXPECT_EQ(many_, values);
}

// Behaviour: A file of options that cannot be read is refused
TEST_F(Commands, RefuseAFileThatCannotBeRead) {
    EXPECT_EQ(Run({"group", "do", "--config", "/nowhere/file"}), kUsage);
    EXPECT_EQ(Run({"group", "do", "--config", "/"}), kUsage);
    EXPECT_EQ(done_, 0);
}

// Behaviour: Of each option that stands in a file it is known where
TEST_F(Commands, KnowThePlacesOfOptions) {
    std::ofstream(file_) << "# nothing\n\nnumber=3\n";
    EXPECT_EQ(Run({"group", "do", "--config", file_.c_str(), "--text", "one"}), 7) << err_;
    EXPECT_EQ(places_, (std::map<std::string, std::string>{{"number", file_ + ":3: "}}));
}

/// The options of a service, two of which it can change while it runs.
struct Declared {
    Declared() {
        Command serve = line.Root().AddCommand("serve", "Serves", [] { return kSuccess; });
        serve.AddOption("--limit", limit, "A number").Between(1, 9).AtReload();
        serve.AddOption("--pause", pause, "Seconds").AtReload();
        serve.AddOption("--place", place, "Where").AtNextStart();
        values = &serve.values();
        kept = std::make_shared<Command>(serve);
    }

    int limit = 5;
    milliseconds pause{1500};
    std::string place = "here";
    CommandLine line{"program", ""};
    OptionValues* values = nullptr;
    std::shared_ptr<Command> kept;
};

// Behaviour: Options that are read again are compared by what they mean; of those that differ, a running
//   service takes over the ones that it can change
TEST(ReadAgain, TakesOverWhatCanChange) {
    Declared running;
    Declared fresh;
    fresh.line.Read({"program", "serve", "--limit", "5", "--pause", "1.50", "--place", "here"});
    EXPECT_THAT(running.values->Differing(Effect::kAtReload, *fresh.values), ::testing::IsEmpty());
    EXPECT_THAT(running.values->Differing(Effect::kAtNextStart, *fresh.values), ::testing::IsEmpty());
    Declared other;
    other.line.Read({"program", "serve", "--limit", "9", "--pause", "2", "--place", "there"});
    EXPECT_THAT(running.values->Differing(Effect::kAtReload, *other.values), ElementsAre("limit", "pause"));
    EXPECT_THAT(running.values->Differing(Effect::kAtNextStart, *other.values), ElementsAre("place"));
    running.values->Take(Effect::kAtReload, *other.values);
    EXPECT_EQ(running.limit, 9);
    EXPECT_EQ(running.pause, milliseconds(2000));
    EXPECT_EQ(running.place, "here");
}

// Behaviour: Options that are read again and cannot be used are an error that says why, and change nothing
TEST(ReadAgain, RefusesWhatCannotBeUsed) {
    Declared fresh;
    try {
        fresh.line.Read({"program", "serve", "--limit", "10"});
        FAIL() << "it takes the number";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kValue);
        EXPECT_THAT(error.sentence(), HasSubstr("--limit"));
    }
}

// Behaviour: A command that fails says so in one line
TEST_F(Commands, SayInOneLineWhatFailed) {
    EXPECT_EQ(Run({"fail"}), kFailure);
    EXPECT_EQ(err_, "program: cannot write a file\n");
}

// Behaviour: The word of an error in an answer is read as the code that it was made from
TEST(Codes, AreReadFromTheirWords) {
    for (int number = 0; number <= static_cast<int>(Code::kInternal); ++number) {
        if (static_cast<Code>(number) == Code::kUnavailable) continue;  // told as kDns
        EXPECT_EQ(CodeOf(Word(static_cast<Code>(number))), static_cast<Code>(number));
    }
    EXPECT_EQ(CodeOf(Word(Code::kUnavailable)), Code::kDns);
    EXPECT_EQ(CodeOf("anything"), Code::kInternal);
    EXPECT_STREQ(Word(Code::kProtocol), "protocol");
}

}  // namespace
}  // namespace zelvek
