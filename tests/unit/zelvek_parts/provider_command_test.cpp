#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "unit/zelvek_parts/support.h"
#include "zelvek/publishing/dns_backends.h"

namespace {

using parts::Content;
using parts::Failure;
using parts::FailureOf;
using parts::Put;
using parts::TempFolder;
using parts::TypeOf;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using zelvek::Code;
using zelvek::dns::Backend;
using zelvek::dns::MakeBackend;
using zelvek::dns::Settings;

class ProviderCommand : public testing::Test {
protected:
    /// The rest of a script of the shell's.
    std::unique_ptr<Backend> Command(const std::string& script) {
        Put(program_, "#!/bin/sh\n" + script + "\n");
        chmod(program_.c_str(), 0700);
        return MakeBackend(good_);
    }

    Failure FailureOfAdding(const std::string& script) {
        const auto backend = Command(script);
        return FailureOf([&] { backend->AddTxt("example.org", "_acme-challenge.example.org", "value"); });
    }

    void ExpectRefused(const std::string& why) const {
        const Failure failure = FailureOf([&] { MakeBackend(good_); });
        EXPECT_EQ(failure.type, "value");
        EXPECT_THAT(failure.text, HasSubstr(why));
    }

    TempFolder folder_;
    std::string program_ = folder_.path() / "the program";  // the blank is part of its name
    std::string seen_ = folder_.path() / "seen";
    Settings good_{{"dns-command", program_},
                   {"dns-command-zone", std::vector<std::string>{"example.org",
                                                                 "B\xc3\xbc"
                                                                 "cher.example."}},
                   {"dns-command-ttl", 17}};
};

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A DNS command gets verb, zone, name, value and time to live as five words, names in their ASCII
// form
TEST_F(ProviderCommand, GetsFiveWords) {
    const auto backend = Command("printf '<%s>' \"$@\" >>'" + seen_ + "'; echo >>'" + seen_ + "'");
    backend->AddTxt("Example.ORG.", "_ACME-challenge.example.org.", "value-1_A");
    backend->RemoveTxt(
        "b\xc3\xbc"
        "cher.example",
        "*.b\xc3\xbc"
        "cher.example",
        "-x");
    EXPECT_EQ(Content(seen_),
              "<add><example.org><_acme-challenge.example.org><value-1_A><17>\n"
              "<remove><xn--bcher-kva.example><*.xn--bcher-kva.example><-x><17>\n");
}

// Behaviour: Any printable value reaches a DNS command unchanged, without a shell between
TEST_F(ProviderCommand, GetsAnyPrintableValueUnchanged) {
    const auto backend = Command("printf '%s\\n' \"$4\" >>'" + seen_ + "'");
    std::string expected;
    for (const std::string& value : {std::string("$(touch here); `id` & | > x"), std::string("--help"),
                                     std::string("it's \"quoted\" \\ * ?"), std::string(255, 'x')}) {
        backend->AddTxt("example.org", "a.example.org", value);
        expected += value + "\n";
    }
    EXPECT_EQ(Content(seen_), expected);
}

// Behaviour: A DNS command has PATH and LANG in its environment and nothing else, no input and no terminal
TEST_F(ProviderCommand, HasACleanEnvironmentAndNoTerminal) {
    setenv("OF_THE_SERVICE", "here", 1);
    const auto backend = Command("exec >'" + seen_ + "'; tr '\\0' '\\n' </proc/$$/environ | sort; wc -c\n" +
                                 "if (exec 3<>/dev/tty) 2>/dev/null; then echo tty; fi");
    backend->AddTxt("example.org", "a.example.org", "v");
    unsetenv("OF_THE_SERVICE");
    EXPECT_EQ(Content(seen_),
              "LANG=C.UTF-8\nPATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n0\n");
}

// Behaviour: The status of a DNS command tells success, a passing failure (75) or one for a person, with the
//   last line of what it has printed
TEST_F(ProviderCommand, TellsByItsStatusHowItEnded) {
    EXPECT_EQ(FailureOfAdding("echo done; echo warning >&2").type, "none");

    const Failure later = FailureOfAdding("echo first; echo the provider is busy >&2; exit 75");
    EXPECT_EQ(later.code, Code::kUnavailable);
    EXPECT_THAT(later.text, AllOf(HasSubstr(program_), HasSubstr("_acme-challenge.example.org"),
                                  EndsWith(": the provider is busy (status 75)"), Not(HasSubstr("first"))));

    for (const int status : {1, 2, 74, 76, 126, 127, 255}) {
        const Failure failure =
            FailureOfAdding("echo first; printf 'no \\033[1mtoken\\n \\n'; exit " + std::to_string(status));
        EXPECT_EQ(failure.code, Code::kDns);
        EXPECT_THAT(failure.text, EndsWith(": no ?[1mtoken (status " + std::to_string(status) + ")"));
    }

    const Failure ended = FailureOfAdding("kill -TERM $$");
    EXPECT_EQ(ended.code, Code::kDns);
    EXPECT_THAT(ended.text, EndsWith(": (status 143)"));
}

// Behaviour: A removal by a DNS command fails as an addition does, and none is asked for outside the zone
TEST_F(ProviderCommand, RemovesInsideTheZoneAlone) {
    const auto backend = Command("echo $1 >>'" + seen_ + "'; exit 75");
    EXPECT_EQ(FailureOf([&] { backend->RemoveTxt("example.org", "a.example.org", "v"); }).code,
              Code::kUnavailable);
    EXPECT_EQ(TypeOf([&] { backend->RemoveTxt("example.org", "a.example.net", "v"); }), "none");
    EXPECT_EQ(Content(seen_), "remove\n");
}

// Behaviour: A DNS command that takes too long is ended with all that it has started, and tried again
TEST_F(ProviderCommand, IsEndedWhenItsTimeIsUp) {
    good_["dns-command-timeout"] = 1;
    const Failure failure = FailureOfAdding("sleep 300 & echo $! >'" + seen_ + "'; wait");
    EXPECT_EQ(failure.code, Code::kUnavailable);
    EXPECT_THAT(failure.text, EndsWith(": it did not end within 1 seconds"));
    const int grandchild = std::stoi(Content(seen_));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const auto runs = [&] {
        const std::string stat = Content("/proc/" + std::to_string(grandchild) + "/stat");
        return stat.find(") S") != std::string::npos;
    };
    while (runs() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(runs());
}

// Behaviour: Of what a DNS command prints the end is kept, and of that one line of bounded length is told
TEST_F(ProviderCommand, MayPrintMuchThatIsNotTold) {
    const Failure failure = FailureOfAdding(
        "head -c 3000000 /dev/zero | tr '\\0' 'x'; head -c 100000 /dev/zero | tr '\\0' 'y'; exit 1");
    EXPECT_EQ(failure.code, Code::kDns);
    EXPECT_LT(failure.text.size(), 1500U);
    EXPECT_THAT(failure.text, AllOf(HasSubstr("yyy"), Not(HasSubstr("xxx"))));
}

// Behaviour: Names and values that are none, or would ...
TEST_F(ProviderCommand, IsNotRunForWhatIsNoRecord) {
    const auto backend = Command("echo run >'" + seen_ + "'");
    const auto type = [&](const std::string& zone, const std::string& name, const std::string& value) {
        const std::string added = TypeOf([&] { backend->AddTxt(zone, name, value); });
        return added;
    };
    EXPECT_EQ(type("example.org", "a.example.net", "v"), "value");
    EXPECT_EQ(type("example.org", "-a;id.example.org", "v"), "value");
    EXPECT_EQ(type("example.org", "a.example.org", ""), "value");
    EXPECT_EQ(type("example.org", "a.example.org", "line\nbreak"), "value");
    EXPECT_EQ(type("example.org", "a.example.org", std::string("a\0b", 3)), "value");
    EXPECT_EQ(type("example.org", "a.example.org", std::string(256, 'x')), "value");
    EXPECT_EQ(type("example.org", "a.example.org", "\xc3\xbc"), "value");
    EXPECT_EQ(TypeOf([&] { backend->RemoveTxt("example.org", "a.example.org", "line\nbreak"); }), "value");
    EXPECT_FALSE(std::filesystem::exists(seen_));
}

// Behaviour: A zone that the settings do not name is an error "dns" ...
TEST_F(ProviderCommand, IsNotRunForOtherZones) {
    const auto backend = Command("echo run >'" + seen_ + "'");
    EXPECT_TRUE(backend->Serves("example.org"));
    EXPECT_TRUE(backend->Serves("xn--bcher-kva.example"));
    EXPECT_FALSE(backend->Serves("www.example.org"));
    const Failure failure = FailureOf([&] { backend->AddTxt("example.net", "a.example.net", "v"); });
    EXPECT_EQ(failure.code, Code::kDns);
    EXPECT_THAT(failure.text, HasSubstr("example.net"));
    EXPECT_FALSE(std::filesystem::exists(seen_));
}

// Behaviour: A DNS command that cannot be started any more is an error "dns" that says why
TEST_F(ProviderCommand, ThatIsGoneIsReported) {
    const auto backend = Command("exit 0");
    std::filesystem::remove(program_);
    const Failure failure = FailureOf([&] { backend->AddTxt("example.org", "a.example.org", "v"); });
    EXPECT_EQ(failure.code, Code::kDns);
    EXPECT_THAT(failure.text, AllOf(HasSubstr(program_), HasSubstr("No such file")));
}

// Behaviour: Wrong settings of the back end are refused ...
TEST_F(ProviderCommand, SettingsAreChecked) {
    Command("exit 0");
    const Settings good = good_;
    const std::string folder = folder_.path();
    Put(folder + "/text", "no program");
    for (const std::string& program : {folder + "/missing", folder, folder + "/text", std::string("true"),
                                       std::string("./true"), std::string("/bin/true x")}) {
        good_["dns-command"] = program;
        ExpectRefused("the DNS command " + program + " is not the absolute path of a program");
    }
    good_ = good;
    good_["dns-command-zone"] = std::vector<std::string>{};
    ExpectRefused("no zone");
    good_["dns-command-zone"] = std::vector<std::string>{"a b"};
    ExpectRefused("a b");
    good_ = good;
    good_["dns-command-timeout"] = 0;
    ExpectRefused("dns-command-timeout is no number from 1 to 3600");
    good_ = good;
    good_["dns-command-ttl"] = -1;
    ExpectRefused("dns-command-ttl is no number from 0 to 86400");
    good_ = good;
    good_["dns-records-file"] = (folder_.path() / "records").string();
    ExpectRefused("a file of records and a DNS command exclude each other");
}

}  // namespace
