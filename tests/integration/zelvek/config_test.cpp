// The service's options as they stand in files.
#include <csignal>
#include <fstream>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

class Config : public ServiceTest {
protected:
    fs::path File(const std::string& name, const std::string& lines) const {
        fs::create_directories(Path(name).parent_path());
        std::ofstream(Path(name)) << lines;
        return Path(name);
    }

    Ended Check() { return Zelvek({"config", "check", "--config", Path("conf")}); }
};

// Behaviours of: Start and store

// Behaviour: Options are taken from a file too, the command line first; unknown ones and wrong values are
//   refused
TEST_F(Config, OptionsAreTakenFromAFileToo) {
    std::ofstream(Path("conf")) << "# the service\n"
                                << "database = " << Path("from-file.db").string() << "\n"
                                << "answers-dir=" << Path("answers here").string() << "\n"
                                << "certs-dir=" << Path("ignored").string() << "\n"
                                << "reload-command=echo  one two\n"
                                << "scheduler=off\n"
                                << "dns-records-file=" << Path("records").string() << "\n";
    const auto service =
        StartCommand({ZELVEK_BINARY, "serve", "--config", Path("conf"), "--certs-dir", Path("certs")});
    ASSERT_TRUE(Eventually([&] { return service->Out() == "zelvek: ready\n" || !service->Running(); }));
    EXPECT_TRUE(fs::exists(Path("from-file.db"))) << service->Err();
    EXPECT_TRUE(fs::is_directory(Path("answers here")));
    EXPECT_TRUE(fs::is_directory(Path("certs"))) << "the command line goes before the file";
    EXPECT_FALSE(fs::exists(Path("ignored")));
    service->Signal(SIGINT);
    EXPECT_EQ(service->Wait().status, 0);
}

// Behaviour: Options are taken from a file too, the command ...
TEST_F(Config, AFileWithAnUnknownOptionOrAWrongValueIsRefused) {
    const auto refused = [&](const std::string& line) {
        std::ofstream(Path("conf")) << line << "\n";
        const Ended ended = Zelvek({"serve", "--config", Path("conf")});
        EXPECT_EQ(ended.status, 2) << line << ended.err;
        return ended.err;
    };
    EXPECT_NE(refused("databas=x").find("there is no option \"databas\""), std::string::npos);
    refused("scheduler=perhaps");
    refused("dns-port=eighty");
    refused("reload-command");
    refused("dns-server=");
    EXPECT_NE(refused("database=").find(Path("conf").string() + ":1: "), std::string::npos);
    EXPECT_EQ(Zelvek({"serve", "--config", Path("missing")}).status, 2);
}

// Behaviour: Options are taken from the files of conf.d too, of which the last one to say something counts
TEST_F(Config, FilesOfAFolderAreReadByTheirNames) {
    File("conf", "database=" + Path("first.db").string() + "\nscheduler=off\npublic-resolvers=1.1.1.1\n");
    File("conf.d/20-site.conf", "answers-dir=" + Path("site").string() + "\n");
    File("conf.d/10-package.conf", "database=" + Path("second.db").string() +
                                       "\npublic-resolvers=off\nanswers-dir=" + Path("package").string() +
                                       "\n");
    File("conf.d/30-note.txt", "no option");
    File("conf.d/.hidden.conf", "no option");
    const auto service =
        StartCommand({ZELVEK_BINARY, "serve", "--config", Path("conf"), "--certs-dir", Path("certs")});
    ASSERT_TRUE(Eventually([&] { return service->Out() == "zelvek: ready\n" || !service->Running(); }));
    EXPECT_TRUE(service->Running()) << "one \"off\", not a server and \"off\": " << service->Err();
    EXPECT_FALSE(fs::exists(Path("first.db")));
    EXPECT_TRUE(fs::exists(Path("second.db")));
    EXPECT_TRUE(fs::exists(Path("site")));
    EXPECT_FALSE(fs::exists(Path("package")));
    service->Signal(SIGTERM);
    EXPECT_EQ(service->Wait().status, 0);
}

// Behaviour: Options are taken from the files of conf.d ...
TEST_F(Config, EachOptionStandsOnceInAFile) {
    File("conf", "scheduler=off\n\nscheduler=on\n");
    EXPECT_EQ(Check().status, 2);
    EXPECT_NE(Check().err.find(Path("conf").string() + ":3: scheduler stands in line 1 already"),
              std::string::npos)
        << Check().err;
}

// Behaviour: A configuration is checked without a service, and each mistake named with its file and line
TEST_F(Config, IsCheckedWithoutAService) {
    File("conf", std::string("plugin=") + TEST_PLUGIN + "\ndatabase=" + Path("never.db").string() +
                     "\nnotify-mail=admin@shop.example\n");
    EXPECT_EQ(Check().out, Path("conf").string() + ": the service can use these options\n") << Check().err;
    EXPECT_EQ(Check().status, 0);
    EXPECT_FALSE(fs::exists(Path("never.db"))) << "it only looks";
    File("conf.d/wrong.conf", "# a comment\nruns-at-once=many\n");
    const Ended ended = Check();
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_NE(ended.err.find(Path("conf.d/wrong.conf").string() + ":2: "), std::string::npos) << ended.err;
}

// Behaviour: A configuration is checked without ...
TEST_F(Config, ValuesThatTheServiceCannotUseAreFound) {
    const auto complaint = [&](const std::string& line) {
        File("conf", std::string("plugin=") + TEST_PLUGIN + "\n" + line + "\n");
        const Ended ended = Check();
        EXPECT_EQ(ended.status, 1) << line;
        return ended.err;
    };
    const auto names = [&](const std::string& line, const std::string& words) {
        const std::string said = complaint(line);
        EXPECT_NE(said.find(words), std::string::npos) << line << "\n" << said;
    };
    names("notify-mail=nobody", "--notify-mail");
    names("notify-smtp=mail.example", "--notify-smtp");
    names("notify-addresses=" + Path("missing").string(), "missing");
    names("check-sites=nowhere", "nowhere");
    names("certs-owner=nobody-has-this-name", "nobody-has-this-name");
    names("dns-server=127.0.0.1\ndns-zone=shop.example\ndns-key-file=" + Path("no.key").string(), "no.key");
}

}  // namespace

}  // namespace zelvek::testing
