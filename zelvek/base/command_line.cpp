#include "zelvek/base/command_line.h"

#include <json/json.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "vek/str.h"
#include "zelvek/base/config_file.h"
#include "zelvek/base/error.h"
#include "zelvek/base/json_text.h"
#include "zelvek/base/text.h"
#include "zelvek/base/version.h"

namespace zelvek {

namespace {

constexpr double kShortestSeconds = 0.001;
constexpr double kLongestSeconds = 86400;
constexpr int kNoEnd = -1;  // of the values that an argument takes
const std::string kAtReload = "Options that take effect when the service is reloaded";
const std::string kAtNextStart = "Options that take effect when the service is started";

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

/// Takes from files what the command line does not say.
class ConfigFiles {
public:
    ConfigFiles(CLI::App& app, std::map<std::string, std::string>& places) : app_(app), places_(places) {
        for (const CLI::Option* option : app.get_options()) {
            if (option->count() > 0) given_.insert(option);
        }
    }

    /// What it says of an option holds instead of what a file before it says.
    void Take(const std::string& file) {
        std::map<const CLI::Option*, int> seen;  // with their lines
        for (const ConfigLine& line : ReadConfigFile(file)) {
            const std::string place = file + ":" + std::to_string(line.number) + ": ";
            CLI::Option& option = OptionOf(app_, place, line);
            const auto [first, fresh] = seen.emplace(&option, line.number);
            if (!fresh && option.get_items_expected_max() <= 1) {
                throw CLI::ConfigError(place + line.name + " stands in line " +
                                       std::to_string(first->second) + " already");
            }
            if (given_.contains(&option)) continue;
            if (fresh) option.clear();
            Apply(option, place, line.value);
            places_[line.name] = place;
        }
    }

private:
    CLI::App& app_;
    std::map<std::string, std::string>& places_;
    std::set<const CLI::Option*> given_;
};

void ApplyConfig(CLI::App& app, const std::string& file, std::map<std::string, std::string>& places) try {
    ConfigFiles files(app, places);
    for (const std::filesystem::path& each : FilesOf(file)) files.Take(each);
} catch (const Error& error) {
    throw CLI::ConfigError(error.what());
}

const CLI::App& CommandNamed(const CLI::App& group, const std::string& word) {
    for (const CLI::App* command : group.get_subcommands({})) {
        if (command->get_name() == word) return *command;
    }
    throw CLI::ValidationError("help", "there is no command \"" + Printable(word) + "\"");
}

/// What --help of the command says that these words name. The library's own help() would tell of the command
/// that was chosen.
std::string HelpOf(const CLI::App& line, const std::vector<std::string>& words) {
    const CLI::App* about = &line;
    std::string name = line.get_name();
    for (const std::string& word : words) {
        about = &CommandNamed(*about, word);
        str::inpl::Append(name, word, " ");
    }
    return about->get_formatter()->make_help(about, name, CLI::AppFormatMode::Normal);
}

Json::Value ErrorJson(const std::string& code, const std::string& sentence) {
    Json::Value json;
    json["error"]["code"] = code;
    json["error"]["message"] = sentence;
    return json;
}

/// The words of "TEXT:{http,dns}".
std::vector<std::string> ChoicesOf(const std::string& type) {
    const std::size_t begin = type.find(":{");
    if (begin == std::string::npos) return {};
    return str::Split(type.substr(begin + 2, type.find('}') - begin - 2), ",");
}

Effect EffectOf(const CLI::Option& option) {
    if (option.get_group() == kAtReload) return Effect::kAtReload;
    return option.get_group() == kAtNextStart ? Effect::kAtNextStart : Effect::kAtOnce;
}

OptionText TextOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const bool has_value = option.get_type_size_max() > 0;
    std::string kind = type;
    return {option.get_positional() ? option.get_name(true) : "--" + option.get_lnames().front(),
            has_value ? str::GetWord(kind, ':') : "", option.get_description(),
            // The library has "[]" for a list in which nothing stands.
            option.get_default_str() == "[]" ? "" : option.get_default_str(), ChoicesOf(type),
            option.get_required(), EffectOf(option)};
}

CommandText TextOf(const CLI::App& app) {
    CommandText text{app.get_name(), app.get_description(), {}, {}, {}};
    for (const CLI::Option* option : app.get_options()) {
        (option->get_positional() ? text.arguments : text.options).push_back(TextOf(*option));
    }
    for (const CLI::App* command : app.get_subcommands({})) text.commands.push_back(TextOf(*command));
    return text;
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

CommandOption& CommandOption::DefaultText(const std::string& text) {
    option_->default_str(text);
    return *this;
}

CommandOption& CommandOption::Check(const std::function<std::string(const std::string&)>& complaint) {
    option_->check(complaint);
    return *this;
}

CommandOption& CommandOption::With(Effect effect) {
    values_->SetEffect("--" + option_->get_lnames().front(), effect);
    option_->group(effect == Effect::kAtReload ? kAtReload : kAtNextStart);
    return *this;
}

struct Command::ConfigFile {
    std::string name;
    std::map<std::string, std::string>* places = nullptr;
};

Command::Command(CLI::App* app, Action* chosen)
    : app_(app),
      chosen_(chosen),
      config_file_(std::make_shared<ConfigFile>()),
      values_(std::make_shared<OptionValues>()) {}

Command Command::AddGroup(const std::string& name, const std::string& description) {
    return {app_->add_subcommand(name, description)->require_subcommand(1), chosen_};
}

Command Command::AddCommand(const std::string& name, const std::string& description, const Action& action) {
    Command added(app_->add_subcommand(name, description), chosen_);
    added.app_->callback([added, action] {
        const ConfigFile& file = *added.config_file_;
        if (!file.name.empty()) ApplyConfig(*added.app_, file.name, *file.places);
        *added.chosen_ = action;
    });
    return added;
}

template <class Value>
CommandOption Command::Added(CLI::Option* option, Value& value) {
    if (!option->get_positional()) values_->Add("--" + option->get_lnames().front(), value);
    return {option, values_};
}

template <class Value>
CommandOption Command::AddValue(const std::string& name, Value& value, const std::string& description) {
    return Added(app_->add_option(name, value, description), value);
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
    return Added(app_->add_option_function<int>(
                     name, [&value](int number) { value = number; }, description),
                 value);
}

CommandOption Command::AddOption(const std::string& name, std::vector<std::string>& values,
                                 const std::string& description) {
    CommandOption added = AddValue(name, values, description);
    added.option_->allow_extra_args(false);  // one value each time, so that an argument may follow
    return added;
}

CommandOption Command::AddRest(const std::string& name, std::vector<std::string>& values,
                               const std::string& description) {
    CommandOption added = AddValue(name, values, description);
    added.option_->expected(1, kNoEnd);
    return added;
}

template <class Duration>
CommandOption Command::AddSeconds(const std::string& name, Duration& value, const std::string& description) {
    using Seconds = std::chrono::duration<double>;
    std::ostringstream text;
    text << Seconds(value).count();
    return Added(
        app_->add_option_function<double>(
                name, [&value](double seconds) { value = std::chrono::ceil<Duration>(Seconds(seconds)); },
                description)
            ->default_str(text.str())
            ->check(CLI::Range(kShortestSeconds, kLongestSeconds))
            // No range refuses what is no number and compares with nothing.
            ->check([](const std::string& seconds) {
                return seconds.find_first_of("nN") == std::string::npos ? std::string()
                                                                        : "no number of seconds";
            }),
        value);
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
    return Added(app_->add_flag(name, value, description), value);
}

CommandOption Command::AddSwitch(const std::string& name, bool& value, const std::string& description) {
    return Added(app_->add_option_function<std::string>(
                         name, [&value](const std::string& text) { value = text == "on"; }, description)
                     ->default_str(value ? "on" : "off")
                     ->check(CLI::IsMember({"on", "off"})),
                 value);
}

void Command::AddConfigFile(const std::string& name, const std::string& description,
                            std::map<std::string, std::string>& places) {
    config_file_->places = &places;
    app_->add_option(name, config_file_->name, description)->check(CLI::ExistingFile);
}

CommandLine::CommandLine(const std::string& program, const std::string& description)
    : app_(std::make_unique<CLI::App>(description, program)) {
    app_->require_subcommand(1);
    app_->option_defaults()->always_capture_default();
    app_->set_version_flag("--version", program + " " + Version());
    AddHelp();
}

CommandLine::~CommandLine() = default;

Command CommandLine::Root() { return {app_.get(), &chosen_}; }

CommandText CommandLine::Describe() const { return TextOf(*app_); }

void CommandLine::AddHelp() {
    CLI::App* help = app_->add_subcommand("help", "The same as --help of a command");
    help->add_option("COMMAND", help_of_, "Its words")->expected(0, kNoEnd);
    help->callback([this] {
        const std::string text = HelpOf(*app_, help_of_);
        chosen_ = [text] {
            std::cout << text;
            return kSuccess;
        };
    });
}

void CommandLine::Complain(const std::string& code, const std::string& sentence) const {
    if (json_) {
        std::cerr << JsonText(ErrorJson(code, sentence)) << std::endl;
    } else {
        std::cerr << app_->get_name() << ": " << WithoutControls(sentence, ' ') << std::endl;
    }
}

int CommandLine::Run(int argc, const char* const* argv) {
    json_ = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // It quotes what was given.
        std::ostringstream complaint;
        const bool help = app_->exit(error, std::cout, complaint) == 0;
        if (json_ && !help) {
            Complain("usage", error.what());
            return kUsage;
        }
        for (std::string rest = complaint.str(); !rest.empty();)
            std::cerr << WithoutControls(str::GetWord(rest, '\n'), ' ') << "\n";
        return WithOutput(app_->get_name(), help ? kSuccess : kUsage);
    }
    try {
        return WithOutput(app_->get_name(), chosen_());
    } catch (const Error& error) {
        Complain(Word(error.code()), error.sentence());
        return error.code() == Code::kDenied ? kNotAllowed : kFailure;
    } catch (const std::exception& error) {
        Complain(Word(Code::kInternal), error.what());
        return kFailure;
    }
}

void CommandLine::Read(const std::vector<std::string>& words) {
    std::vector<const char*> arguments;
    arguments.reserve(words.size());
    for (const std::string& word : words) arguments.push_back(word.c_str());
    try {
        app_->parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError& error) {
        throw Error(Code::kValue, error.what());
    }
}

}  // namespace zelvek
