// The only file that includes CLI11, which takes long to compile.
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <set>
#include <sstream>

#include "zelvek/base/text.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"
#include "zelvek/service/serve.h"

namespace zelvek::cli {

namespace {

using Action = std::function<int()>;

/// What is filled in while the arguments are read.
struct Arguments {
    Action action;
    Output output;
    ServeOptions serve;
    std::string config;
    NewJob job;
    int id = 0;
    std::string name;
    std::string user;
    std::filesystem::path plugin = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ambrin";
};

/// An option in seconds, with decimals where the duration is finer.
template <class Duration>
void AddSeconds(CLI::App& app, const std::string& name, Duration& value, const std::string& description) {
    using Seconds = std::chrono::duration<double>;
    std::ostringstream text;
    text << Seconds(value).count();
    app.add_option_function<double>(
           name, [&value](double seconds) { value = std::chrono::ceil<Duration>(Seconds(seconds)); },
           description)
        ->default_str(text.str())
        ->check(CLI::Range(0.001, 86400.0));
}

/// The library cuts a line at "#" even inside quotes: better an error than half a command.
void CheckQuotes(const std::string& file, const CLI::ConfigItem& item) {
    for (const std::string& input : item.inputs) {
        if (!input.empty() && (input.front() == '"' || input.front() == '\'')) {
            throw CLI::ConfigError(file + ": the value of \"" + item.name + "\" has no closing quote");
        }
    }
}

/// Takes from the file what the command line does not say.
void ApplyConfig(CLI::App& app, const std::string& file) {
    std::set<const CLI::Option*> given;
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0) given.insert(option);
    }
    for (const CLI::ConfigItem& item : CLI::ConfigBase().from_file(file)) {
        if (item.name == "++" || item.name == "--") continue;  // a section's begin and end
        CLI::Option* option = app.get_option_no_throw("--" + item.name);
        if (option == nullptr || item.name == "config" || item.name == "help") {
            throw CLI::ConfigError(file + ": there is no option \"" + item.fullname() + "\"");
        }
        CheckQuotes(file, item);
        if (given.contains(option)) continue;
        const bool repeatable = option->get_items_expected_max() > 1;
        option->add_result(repeatable ? item.inputs
                                      : std::vector<std::string>{CLI::detail::join(item.inputs, " ")});
        option->run_callback();
    }
}

void AddDnsOption(CLI::App& app, const dns::Option& option, dns::Settings& settings) {
    const auto add = [&](auto& value) {
        CLI::Option* added = app.add_option("--" + option.name, value, option.help);
        if (std::holds_alternative<int>(option.standard)) added->check(CLI::Range(option.least, option.most));
        if (added->get_items_expected_max() > 1) added->allow_extra_args(false);
    };
    std::visit(add, settings[option.name] = option.standard);
}

void AddServe(CLI::App& root, Arguments& arguments) {
    CLI::App* app = root.add_subcommand("serve", "The service itself, until SIGTERM or SIGINT");
    ServeOptions& options = arguments.serve;
    app->add_option("--config", arguments.config, "File of these options, key=value lines")
        ->check(CLI::ExistingFile);
    app->add_option("--database", options.database, "Job records, keys, notifications");
    app->add_option("--answers-dir", options.answers, "http-01 answer files");
    app->add_option("--certs-dir", options.install.directory, "Installed certificates");
    app->add_option("--reload-command", options.install.reload_command, "Run after each installation");
    AddSeconds(*app, "--reload-timeout", options.install.reload_limit, "Seconds that it may take");
    app->add_option("--http-responder", options.responder, "ADDR:PORT to serve the answer files on");
    app->add_option("--plugin", arguments.plugin, "The ACME plug-in");
    app->add_option_function<std::string>(
           "--scheduler", [&options](const std::string& text) { options.scheduler = text == "on"; },
           "Whether due jobs are started: on or off")
        ->default_str("on")
        ->check(CLI::IsMember({"on", "off"}));
    AddSeconds(*app, "--scheduler-interval", options.scheduler_interval, "Seconds between looks at the jobs");
    AddSeconds(*app, "--retry-interval", options.retry_interval,
               "Seconds until a job that asks for no time runs again");
    AddSeconds(*app, "--sweep-interval", options.sweep_interval,
               "Seconds between looks for what dead runs left");
    for (const dns::BackendKind& kind : dns::BackendKinds()) {
        for (const dns::Option& option : kind.options) AddDnsOption(*app, option, options.dns);
    }
    app->callback([&arguments, app] {
        if (!arguments.config.empty()) ApplyConfig(*app, arguments.config);
        arguments.action = [&arguments] {
            arguments.serve.plugin = arguments.plugin;
            return Serve(arguments.serve);
        };
    });
}

/// A client command.
CLI::App* AddCommand(CLI::App& noun, Arguments& arguments, const std::string& name,
                     const std::string& description, const Action& action) {
    CLI::App* app = noun.add_subcommand(name, description);
    app->add_flag("--json", arguments.output.json, "One JSON text on standard output");
    app->callback([&arguments, action] { arguments.action = action; });
    return app;
}

CLI::App& AddNoun(CLI::App& root, const std::string& name, const std::string& description) {
    return *root.add_subcommand(name, description)->require_subcommand(1);
}

void AddDomainCommands(CLI::App& root, Arguments& arguments) {
    CLI::App& noun = AddNoun(root, "domain", "Users' domains");
    CLI::App* add = AddCommand(noun, arguments, "add", "Gives a domain to a user",
                               [&] { return AddDomain(arguments.name, arguments.user, arguments.output); });
    add->add_option("NAME", arguments.name, "Domain name, Unicode or ASCII")->required();
    add->add_option("--user", arguments.user, "Its owner")->required();
    CLI::App* list = AddCommand(noun, arguments, "list", "Shows domains",
                                [&] { return ListDomains(arguments.user, arguments.output); });
    list->add_option("--user", arguments.user, "Of this user alone");
}

void AddJobOptions(CLI::App& add, NewJob& job) {
    add.add_option("NAME", job.name, "Main domain name")->required();
    add.add_option("--user", job.user, "Owner of the certificate")->required();
    add.add_option("--alias", job.aliases, "A further name; repeatable")->allow_extra_args(false);
    add.add_option("--check", job.check, "How names are proved: http or dns")
        ->check(CLI::IsMember({"http", "dns"}));
    add.add_option("--certname", job.certname, "Name of the certificate; without it, NAME");
    add.add_option("--res-name", job.res_name, "A further addressee of notifications");
    add.add_option("--csr", job.csr, "KEY=VALUE for the request, such as key_type=ec; repeatable")
        ->allow_extra_args(false)
        ->check([](const std::string& text) {
            return text.find('=') == std::string::npos ? "\"" + text + "\" is no KEY=VALUE" : std::string();
        });
    add.add_flag("--skip-account-check", job.skip_account_check, "Use the account without asking for it");
    add.add_option("--max-account-checks", job.max_account_checks,
                   "Failed checks before a new account is made")
        ->check(CLI::NonNegativeNumber);
}

void AddJobCommands(CLI::App& root, Arguments& arguments) {
    CLI::App& noun = AddNoun(root, "job", "Certificate jobs");
    AddJobOptions(*AddCommand(noun, arguments, "add", "Asks for a certificate",
                              [&] { return AddJob(arguments.job, arguments.output); }),
                  arguments.job);
    AddCommand(noun, arguments, "list", "Shows the jobs", [&] { return ListJobs(arguments.output); });
    CLI::App* show = AddCommand(noun, arguments, "show", "Shows a job and its history",
                                [&] { return ShowJob(arguments.id, arguments.output); });
    CLI::App* run = AddCommand(noun, arguments, "run", "Runs a job now",
                               [&] { return RunJob(arguments.id, arguments.plugin, arguments.output); });
    CLI::App* remove = AddCommand(noun, arguments, "remove", "Forgets a job; its certificate stays",
                                  [&] { return RemoveJob(arguments.id, arguments.output); });
    for (CLI::App* app : {show, run, remove})
        app->add_option("ID", arguments.id, "The job's number")->required();
    run->add_flag("--quiet", arguments.output.quiet, "No progress");
    run->add_option("--plugin", arguments.plugin, "The ACME plug-in");
}

int Run(const Action& action) {
    try {
        return action();
    } catch (const std::exception& error) {
        std::cerr << "zelvek: " << WithoutControls(error.what(), ' ') << std::endl;
        return kFailure;
    }
}

}  // namespace

int Main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("The panel's local management service and its command line", "zelvek");
    app.require_subcommand(1);
    app.option_defaults()->always_capture_default();
    AddServe(app, arguments);
    AddDomainCommands(app, arguments);
    AddJobCommands(app, arguments);
    CLI::App& problem = AddNoun(app, "problem", "Notifications");
    AddCommand(problem, arguments, "list", "Shows the notifications",
               [&] { return ListProblems(arguments.output); });
    CLI::App& account = AddNoun(app, "account", "The default account at the authority");
    AddCommand(account, arguments, "show", "Shows it, without its key",
               [&] { return ShowAccount(arguments.output); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kSuccess : kUsage;
    }
    return Run(arguments.action);
}

}  // namespace zelvek::cli
