#include "zelvek/base/command_line.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "vek/str.h"
#include "zelvek/base/config_file.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

constexpr double kShortestSeconds = 0.001;
constexpr double kLongestSeconds = 86400;

/// The option that a line names.
CLI::Option& OptionOf(CLI::App& app, const std::string& place, const ConfigLine& line) {
    CLI::Option* option = app.get_option_no_throw("--" + line.name);
    if (option != nullptr && line.name != "config" && line.name != "help") return *option;
    throw CLI::ConfigError(place + "there is no option \"" + Printable(line.name) + "\"");
}

/// What the option complains of is told with the line's place.
void Apply(CLI::Option& option, const std::string& place, const std::string& value) {
    try {
        option.add_result(value);
        option.run_callback();
    } catch (const CLI::ParseError& error) {
        throw CLI::ConfigError(place + error.what());
    }
}

/// Takes from the file what the command line does not say.
void ApplyConfig(CLI::App& app, const std::string& file) try {
    std::set<const CLI::Option*> given;
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0) given.insert(option);
    }
    std::map<const CLI::Option*, int> seen;  // with their lines
    for (const ConfigLine& line : ReadConfigFile(file)) {
        const std::string place = file + ":" + std::to_string(line.number) + ": ";
        CLI::Option& option = OptionOf(app, place, line);
        const auto [first, fresh] = seen.emplace(&option, line.number);
        if (!fresh && option.get_items_expected_max() <= 1) {
            throw CLI::ConfigError(place + line.name + " stands in line " + std::to_string(first->second) +
                                   " already");
        }
        if (!given.contains(&option)) Apply(option, place, line.value);
    }
} catch (const Error& error) {
    throw CLI::ConfigError(error.what());
}

/// The exit status of a command that has come to `status`, when its output has got to where it goes: a script
/// that writes into a file on a full disk has to hear of it.
int WithOutput(const std::string& program, int status) {
    std::cout.flush();
    if (std::cout) return status;
    std::cerr << program << ": the output cannot be written" << std::endl;
    return kFailure;
}

}  // namespace

CommandOption& CommandOption::Required() {
    option_->required();
    return *this;
}

CommandOption& CommandOption::Between(int least, int most) {
    option_->check(CLI::Range(least, most));
    return *this;
}

CommandOption& CommandOption::Positive() {
    option_->check(CLI::PositiveNumber);
    return *this;
}

CommandOption& CommandOption::NonNegative() {
    option_->check(CLI::NonNegativeNumber);
    return *this;
}

CommandOption& CommandOption::OneOf(const std::vector<std::string>& words) {
    option_->check(CLI::IsMember(words));
    return *this;
}

CommandOption& CommandOption::NotEmpty() {
    option_->check([](const std::string& text) { return text.empty() ? "an empty value" : std::string(); });
    return *this;
}

CommandOption& CommandOption::Check(const std::function<std::string(const std::string&)>& complaint) {
    option_->check(complaint);
    return *this;
}

Command::Command(CLI::App* app, Action* chosen)
    : app_(app), chosen_(chosen), config_file_(std::make_shared<std::string>()) {}

Command Command::AddGroup(const std::string& name, const std::string& description) {
    return {app_->add_subcommand(name, description)->require_subcommand(1), chosen_};
}

Command Command::AddCommand(const std::string& name, const std::string& description, const Action& action) {
    Command added(app_->add_subcommand(name, description), chosen_);
    added.app_->callback([added, action] {
        if (!added.config_file_->empty()) ApplyConfig(*added.app_, *added.config_file_);
        *added.chosen_ = action;
    });
    return added;
}

template <class Value>
CommandOption Command::AddValue(const std::string& name, Value& value, const std::string& description) {
    return CommandOption(app_->add_option(name, value, description));
}

CommandOption Command::AddOption(const std::string& name, std::string& value,
                                 const std::string& description) {
    return AddValue(name, value, description);
}

CommandOption Command::AddOption(const std::string& name, std::filesystem::path& value,
                                 const std::string& description) {
    return AddValue(name, value, description);
}

CommandOption Command::AddOption(const std::string& name, int& value, const std::string& description) {
    return AddValue(name, value, description);
}

CommandOption Command::AddOption(const std::string& name, std::optional<int>& value,
                                 const std::string& description) {
    return CommandOption(app_->add_option_function<int>(
        name, [&value](int number) { value = number; }, description));
}

CommandOption Command::AddOption(const std::string& name, std::vector<std::string>& values,
                                 const std::string& description) {
    const CommandOption added = AddValue(name, values, description);
    added.option_->allow_extra_args(false);  // one value each time, so that an argument may follow
    return added;
}

template <class Duration>
CommandOption Command::AddSeconds(const std::string& name, Duration& value, const std::string& description) {
    using Seconds = std::chrono::duration<double>;
    std::ostringstream text;
    text << Seconds(value).count();
    return CommandOption(
        app_->add_option_function<double>(
                name, [&value](double seconds) { value = std::chrono::ceil<Duration>(Seconds(seconds)); },
                description)
            ->default_str(text.str())
            ->check(CLI::Range(kShortestSeconds, kLongestSeconds))
            // No range refuses what is no number and compares with nothing.
            ->check([](const std::string& seconds) {
                return seconds.find_first_of("nN") == std::string::npos ? std::string()
                                                                        : "no number of seconds";
            }));
}

CommandOption Command::AddOption(const std::string& name, std::chrono::seconds& value,
                                 const std::string& description) {
    return AddSeconds(name, value, description);
}

CommandOption Command::AddOption(const std::string& name, std::chrono::milliseconds& value,
                                 const std::string& description) {
    return AddSeconds(name, value, description);
}

CommandOption Command::AddFlag(const std::string& name, bool& value, const std::string& description) {
    return CommandOption(app_->add_flag(name, value, description));
}

CommandOption Command::AddSwitch(const std::string& name, bool& value, const std::string& description) {
    return CommandOption(
        app_->add_option_function<std::string>(
                name, [&value](const std::string& text) { value = text == "on"; }, description)
            ->default_str(value ? "on" : "off")
            ->check(CLI::IsMember({"on", "off"})));
}

void Command::AddConfigFile(const std::string& name, const std::string& description) {
    app_->add_option(name, *config_file_, description)->check(CLI::ExistingFile);
}

CommandLine::CommandLine(const std::string& program, const std::string& description)
    : app_(std::make_unique<CLI::App>(description, program)) {
    app_->require_subcommand(1);
    app_->option_defaults()->always_capture_default();
}

CommandLine::~CommandLine() = default;

Command CommandLine::Root() { return {app_.get(), &chosen_}; }

int CommandLine::Run(int argc, const char* const* argv) {
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // It quotes what was given.
        std::ostringstream complaint;
        const bool help = app_->exit(error, std::cout, complaint) == 0;
        for (std::string rest = complaint.str(); !rest.empty();)
            std::cerr << WithoutControls(str::GetWord(rest, '\n'), ' ') << "\n";
        return WithOutput(app_->get_name(), help ? kSuccess : kUsage);
    }
    try {
        return WithOutput(app_->get_name(), chosen_());
    } catch (const std::exception& error) {
        std::cerr << app_->get_name() << ": " << WithoutControls(error.what(), ' ') << std::endl;
        return kFailure;
    }
}

}  // namespace zelvek
