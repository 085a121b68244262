#include "zelvek/service/serve_command.h"

#include <unistd.h>

#include <array>
#include <iostream>
#include <memory>
#include <variant>

#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"
#include "zelvek/base/text.h"
#include "zelvek/publishing/dns_backends.h"

namespace zelvek {

namespace {

void AddDnsOption(Command& serve, const dns::Option& option, dns::Settings& settings) {
    const auto add = [&](auto& value) {
        CommandOption added = serve.AddOption("--" + option.name, value, option.help).AtReload();
        if (std::holds_alternative<int>(option.standard)) added.Between(option.least, option.most);
        if (std::holds_alternative<std::string>(option.standard)) added.NotEmpty();
    };
    std::visit(add, settings[option.name] = option.standard);
}

void AddRunOptions(Command& serve, ServeOptions& options) {
    constexpr int kMostRuns = 1000;
    constexpr int kMostOrders = 1000000;
    serve.AddOption("--runs-at-once", options.runs_at_once, "Runs that go on at once")
        .Between(1, kMostRuns)
        .DefaultText("twice the processors")
        .AtReload();
    serve.AddOption("--orders-limit", options.limits.orders, "Orders of one account within three hours")
        .Between(1, kMostOrders)
        .AtReload();
    serve.AddOption("--failures-limit", options.limits.failures, "Failed checks of one name within an hour")
        .Between(1, kMostOrders)
        .AtReload();
    serve
        .AddSwitch("--renewal-info", options.renewal_info,
                   "Whether the authority is asked when to renew: on or off")
        .AtReload();
    serve
        .AddOption("--retry-interval", options.retry_interval,
                   "Seconds until a job that asks for no time runs again")
        .AtReload();
    serve.AddOption("--run-limit", options.run_limit, "Seconds that a run may take before it is ended")
        .AtReload();
    serve
        .AddOption(
            "--plugin-log-level", options.plugin_log_level,
            "What runs write to their log: 3 misuse, 4 failures too, 8 each signed request, 9 everything")
        .Between(0, vek_log::kTrace)
        .AtReload();
}

void AddJobOptions(Command& serve, ServeOptions& options) {
    serve.AddOption("--plugin", options.plugin, "The ACME plug-in; those for other authorities lie beside it")
        .NotEmpty()
        .DefaultText("ambrin beside zelvek")
        .AtNextStart();
    serve
        .AddOption("--authorities-dir", options.authorities,
                   "What plug-ins beside it are for, NAME.conf files")
        .NotEmpty()
        .DefaultText("of the installation")
        .AtNextStart();
    serve.AddSwitch("--scheduler", options.scheduler, "Whether due jobs are started: on or off").AtReload();
    serve
        .AddOption("--scheduler-interval", options.scheduler_interval,
                   "Seconds between looks at the jobs, where nothing is due before")
        .AtReload();
    serve
        .AddOption("--sweep-interval", options.sweep_interval,
                   "Seconds between looks for what dead runs left")
        .AtNextStart();
    AddRunOptions(serve, options);
}

/// A job's history and the notifications are there for people to look back, not for ever.
void AddRetentionOptions(Command& serve, Retention& retention) {
    constexpr int kMostDays = 10000;
    constexpr int kMostEntries = 1000000;
    serve.AddOption("--history-days", retention.history_days, "Days that a job's events are kept")
        .Between(1, kMostDays)
        .AtReload();
    serve.AddOption("--history-entries", retention.history_entries, "Events that are kept of each job")
        .Between(1, kMostEntries)
        .AtReload();
    serve.AddOption("--notification-days", retention.notification_days, "Days that notifications are kept")
        .Between(1, kMostDays)
        .AtReload();
    serve.AddOption("--notification-entries", retention.notification_entries, "Notifications that are kept")
        .Between(1, kMostEntries)
        .AtReload();
}

void AddNoticeOptions(Command& serve, notices::Notifier::Settings& notify) {
    serve.AddOption("--notify-mail", notify.administrator, "Address of the administrator for notifications")
        .NotEmpty()
        .AtReload();
    serve.AddOption("--notify-addresses", notify.addresses, "File of other addressees, user=address lines")
        .NotEmpty()
        .AtReload();
    serve.AddOption("--notify-from", notify.from, "Sender's address of the mails").NotEmpty().AtReload();
    serve.AddOption("--notify-sendmail", notify.sendmail, "Program that mails are given to")
        .NotEmpty()
        .AtReload();
    serve.AddOption("--notify-smtp", notify.smtp, "smtp://host:port or smtps://host:port instead of it")
        .NotEmpty()
        .AtReload();
    serve
        .AddOption("--notify-command", notify.command,
                   "Command that gets each recipient's notifications as JSON on its standard input")
        .AtReload();
    serve
        .AddOption("--notify-interval", notify.interval,
                   "Seconds between two mails to one recipient, or two runs of the command")
        .AtReload();
    serve.AddOption("--notify-timeout", notify.limit, "Seconds that one delivery may take").AtReload();
    serve.AddOption("--notice-texts", notify.texts, "File of other words for notifications")
        .NotEmpty()
        .AtReload();
}

void AddWatchingOptions(Command& serve, ServeOptions& options) {
    constexpr int kMostCertificates = 1000;
    serve
        .AddOption("--metrics-listen", options.metrics_listen,
                   "127.0.0.1:PORT or [::1]:PORT where a Prometheus server reads metrics")
        .AtNextStart();
    serve
        .AddOption("--metrics-certificates", options.metrics.certificates,
                   "Certificates, those that end next, whose ends are metrics of their own")
        .Between(0, kMostCertificates)
        .AtReload();
}

void AddInstallationOptions(Command& serve, ServeOptions& options) {
    serve.AddOption("--certs-dir", options.install.directory, "Installed certificates")
        .NotEmpty()
        .AtNextStart();
    serve
        .AddOption("--certs-owner", options.certs_owners,
                   "A user to whom folders below --certs-dir may belong; repeatable")
        .AtNextStart();
    serve.AddOption("--reload-command", options.reload.command, "Run after each installation").AtReload();
    serve.AddOption("--reload-timeout", options.reload.limit, "Seconds that it may take").AtReload();
    serve
        .AddOption("--reload-pause", options.reload.first_pause,
                   "Seconds until a failed one is tried again; doubled with each failure, up to an hour")
        .AtReload();
    serve
        .AddOption("--check-sites", options.check_sites,
                   "ADDR:PORT where new certificates are looked for after their reload, name, or off")
        .NotEmpty()
        .AtReload();
    serve
        .AddOption("--check-pause", options.site_watch.first_pause,
                   "Seconds until the first look; each further pause is twice as long, up to an hour")
        .AtReload();
}

void AddPageOptions(Command& serve, page::Settings& settings) {
    serve
        .AddOption("--page-listen", settings.listen,
                   "127.0.0.1:PORT, [::1]:PORT or the path of a unix socket where the web page is served")
        .AtNextStart();
    serve
        .AddOption("--page-url", settings.url,
                   "The address at which people open the page, where a web server stands before it")
        .AtNextStart();
    serve.AddOption("--page-peer", settings.peer, "User of that web server, who may use the socket")
        .AtNextStart();
    serve
        .AddOption("--page-user-header", settings.user_header,
                   "Header in which it says whose jobs a request sees; over the socket alone")
        .AtNextStart();
    serve.AddOption("--page-files", settings.files, "The page's files")
        .NotEmpty()
        .DefaultText("of the installation")
        .AtNextStart();
    serve.AddOption("--page-idle", settings.idle, "Seconds without anything done after which a session ends")
        .AtNextStart();
    serve.AddOption("--page-session", settings.longest, "Seconds after which a session ends whatever is done")
        .AtNextStart();
}

void AddServeOptions(Command& serve, ServeOptions& options) {
    serve.AddConfigFile("--config",
                        "File of these options, key=value lines; conf.d/*.conf beside it are read, too",
                        options.places);
    serve
        .AddOption("--database", options.database,
                   "Job records, keys, notifications: a file, or a URL postgresql://...")
        .NotEmpty()
        .AtNextStart();
    serve.AddOption("--answers-dir", options.answers, "http-01 answer files").NotEmpty().AtNextStart();
    AddInstallationOptions(serve, options);
    serve.AddOption("--http-responder", options.responder, "ADDR:PORT to serve the answer files on")
        .AtNextStart();
    serve
        .AddOption("--public-resolvers", options.public_resolvers,
                   "Name servers to ask what others see of a name that was not proved; repeatable, or off")
        .AtReload();
    serve
        .AddOption("--admin-group", options.groups.admin,
                   "Members of this group may change everything by the command line, but see no key")
        .AtNextStart();
    serve
        .AddOption("--read-group", options.groups.read,
                   "Members of this group may see everything but keys, and change nothing")
        .AtNextStart();
    AddJobOptions(serve, options);
    AddWatchingOptions(serve, options);
    AddPageOptions(serve, options.page);
    AddRetentionOptions(serve, options.retention);
    AddNoticeOptions(serve, options.notify);
    for (const dns::BackendKind& kind : dns::BackendKinds()) {
        for (const dns::Option& option : kind.options) AddDnsOption(serve, option, options.dns);
    }
}

/// The options of a command line of their own.
struct Declared {
    Declared() { AddServeOptions(serve, options); }

    ServeOptions options;
    CommandLine line{"zelvek", ""};
    Command serve = line.Root().AddCommand("serve", "", [] { return kSuccess; });
};

/// `running` are the values by which the service goes.
NewOptions ReadOptionsAgain(const std::vector<std::string>& words, OptionValues& running) {
    const auto fresh = std::make_shared<Declared>();
    fresh->line.Read(words);
    CheckOptions(fresh->options);
    OptionValues& values = fresh->serve.values();
    NewOptions read{{},
                    running.Differing(Effect::kAtReload, values),
                    running.Differing(Effect::kAtNextStart, values),
                    [fresh, &running] { running.Take(Effect::kAtReload, fresh->serve.values()); }};
    values.Take(Effect::kAtNextStart, running);
    read.options = fresh->options;
    return read;
}

int CheckConfig(const std::string& file) {
    ServeOptions options;
    const int status = ReadServeOptions(file, options);
    if (status != kSuccess) return status;
    // The service has to be able to use them, not root.
    BecomeServiceUser(RunDirectory());
    CheckOptions(options);
    std::cout << Printable(file) << ": the service can use these options\n";
    return kSuccess;
}

}  // namespace

int ReadServeOptions(const std::string& file, ServeOptions& options) {
    RequireAccess(file, R_OK, "reading the service's options");
    CommandLine reader("zelvek", "");
    Command serve = reader.Root().AddCommand("serve", "", [] { return kSuccess; });
    AddServeOptions(serve, options);
    const std::array arguments{"zelvek", "serve", "--config", file.c_str()};
    return reader.Run(arguments.size(), arguments.data());
}

void AddServeCommand(Command& root, const std::vector<std::string>& words) {
    const auto options = std::make_shared<ServeOptions>();
    const auto values = std::make_shared<OptionValues*>(nullptr);
    Command serve =
        root.AddCommand("serve", "The service itself, until SIGTERM or SIGINT", [options, values, words] {
            Serve(*options, [&] { return ReadOptionsAgain(words, **values); });
            return kSuccess;
        });
    AddServeOptions(serve, *options);
    *values = &serve.values();
}

void AddConfigCommands(Command& root) {
    Command noun = root.AddGroup("config", "The service's configuration");
    const auto file = std::make_shared<std::string>("/etc/zelvek/zelvek.conf");
    Command check = noun.AddCommand("check", "Says whether the service can use a file of options",
                                    [file] { return CheckConfig(*file); });
    check.AddOption("--config", *file, "The file; conf.d/*.conf beside it are read, too").NotEmpty();
}

}  // namespace zelvek
