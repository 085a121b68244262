#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/option_values.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zelvek {

/// What the help says of an option, or of an argument without a name of its own.
struct OptionText {
    std::string name;   // "--user", or "NAME" of an argument
    std::string value;  // the kind of its value, such as "TEXT"; empty where it has none
    std::string description;
    std::string standard = {};  // what holds where it is not given; empty where nothing does
    std::vector<std::string> choices =
        {};  // the only values that it takes; empty where others are taken, too
    bool required = false;
    Effect effect = Effect::kAtOnce;
};

/// What the help says of a command, or of a group of commands.
struct CommandText {
    std::string name, description;
    std::vector<OptionText> options, arguments;  // in the order in which the help has them
    std::vector<CommandText> commands;           // of a group
};

/// The exit statuses that every command has; some have more.
enum CommandStatus : int {
    kSuccess = 0,
    kFailure = 1,
    kUsage = 2,
    kNotAllowed = 5,  // 3 and 4 are single commands'
};

/// What a command does; returns the program's exit status.
using Action = std::function<int()>;

/// What a command takes: an option, or an argument without a name of its own.
class CommandOption {
public:
    CommandOption& Required();
    CommandOption& Between(int least, int most);
    CommandOption& Positive();
    CommandOption& NonNegative();
    CommandOption& NotEmpty();
    CommandOption& OneOf(const std::vector<std::string>& words);

    /// What the help shows as the default, where its value depends on the machine.
    CommandOption& DefaultText(const std::string& text);

    /// `complaint` says what is wrong with a text; it is empty for one that can be used.
    CommandOption& Check(const std::function<std::string(const std::string&)>& complaint);

    /// When a service that runs goes by another value: when it reads its options again, or not before it is
    /// started anew.
    CommandOption& AtReload() { return With(Effect::kAtReload); }
    CommandOption& AtNextStart() { return With(Effect::kAtNextStart); }

private:
    friend class Command;
    CommandOption(CLI::Option* option, std::shared_ptr<OptionValues> values)
        : option_(option), values_(std::move(values)) {}
    CommandOption& With(Effect effect);

    CLI::Option* option_;
    std::shared_ptr<OptionValues> values_;
};

/// A command, or a group of commands; a handle that is valid while its `CommandLine` lives. Options are named
/// "--user", arguments without a name "USER". What is given for one is written to the variable of its
/// `AddOption`, which lives as long as the command line; what stands there before is shown as the default.
class Command {
public:
    /// A group of commands, of which one has to be given.
    Command AddGroup(const std::string& name, const std::string& description);

    /// A command that does `action` when all arguments have been read.
    Command AddCommand(const std::string& name, const std::string& description, const Action& action);

    CommandOption AddOption(const std::string& name, std::string& value, const std::string& description);
    CommandOption AddOption(const std::string& name, std::filesystem::path& value,
                            const std::string& description);
    CommandOption AddOption(const std::string& name, int& value, const std::string& description);
    CommandOption AddOption(const std::string& name, std::optional<int>& value,
                            const std::string& description);

    /// An option that may be given several times.
    CommandOption AddOption(const std::string& name, std::vector<std::string>& values,
                            const std::string& description);

    /// Seconds, with decimals where the duration is finer.
    CommandOption AddOption(const std::string& name, std::chrono::seconds& value,
                            const std::string& description);
    CommandOption AddOption(const std::string& name, std::chrono::milliseconds& value,
                            const std::string& description);

    /// An argument that takes all further words, at least one; after "--" whatever they look like.
    CommandOption AddRest(const std::string& name, std::vector<std::string>& values,
                          const std::string& description);

    /// An option without a value.
    CommandOption AddFlag(const std::string& name, bool& value, const std::string& description);

    /// An option with the value "on" or "off".
    CommandOption AddSwitch(const std::string& name, bool& value, const std::string& description);

    /// An option with a file of lines "option=value" (config_file.h): what it says holds where the command
    /// line says nothing. Files conf.d/*.conf beside it are read after it, by their names; what a later file
    /// says of an option replaces what an earlier one says. A mistake is told with file and line, and
    /// `places` gets the place of each option that stands in a file: "FILE:LINE: ".
    void AddConfigFile(const std::string& name, const std::string& description,
                       std::map<std::string, std::string>& places);

    /// The variables of the options.
    OptionValues& values() { return *values_; }

private:
    friend class CommandLine;
    Command(CLI::App* app, Action* chosen);

    template <class Value>
    CommandOption Added(CLI::Option* option, Value& value);
    template <class Value>
    CommandOption AddValue(const std::string& name, Value& value, const std::string& description);
    template <class Duration>
    CommandOption AddSeconds(const std::string& name, Duration& value, const std::string& description);

    CLI::App* app_;
    Action* chosen_;
    struct ConfigFile;
    std::shared_ptr<ConfigFile> config_file_;
    std::shared_ptr<OptionValues> values_;
};

/// The program's command line. Its source is the one file that includes CLI11, which takes several seconds in
/// each file that does.
class CommandLine {
public:
    CommandLine(const std::string& program, const std::string& description);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// The group that holds every other.
    Command Root();

    /// All that the help says.
    CommandText Describe() const;

    /// Reads the arguments, does what they say, and returns the exit status. What fails is one line on
    /// standard error; where "--json" is among the arguments, that line is a JSON object
    /// {"error": {"code", "message"}} with the error's word, or "usage".
    int Run(int argc, const char* const* argv);

    /// Reads the arguments and does nothing. Errors: Error of code kValue.
    void Read(const std::vector<std::string>& words);

private:
    void AddHelp();
    void Complain(const std::string& code, const std::string& sentence) const;

    std::unique_ptr<CLI::App> app_;
    Action chosen_;
    std::vector<std::string> help_of_;
    bool json_ = false;
};

}  // namespace zelvek
