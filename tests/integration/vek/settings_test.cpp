// What shows from inside alone: what transfers are set to, and what becomes of libcurl's own failures.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <sstream>

#include "integration/vek/curl_between.h"
#include "integration/vek/server.h"
#include "vek/client.h"
#include "vek/err.h"
#include "vek/rpc.h"

namespace {

using vek_test::FailOnce;
using vek_test::LastSetting;

void Exchange() {
    const auto serve = [](vek_test::Connection& connection) {
        connection.ReadRequest();
        connection.Write(vek_test::Answer(200, "", "ok"));
    };
    const vek_test::Server server(serve);
    std::ostringstream out;
    vek_rpc::HttpQuery().Get(server.url(), out);
    EXPECT_EQ(out.str(), "ok");
}

// Behaviours of: HTTP exchanges

// Behaviour: They are 30 seconds, 60 seconds and 5 minutes ...
TEST(TransferSettings, GiveAQueryTenMinutes) {
    const vek_test::TempFolder folder;
    const vek_test::Variable run_dir("VEK_RUN_DIR", folder.path());
    const vek_test::Service service(folder.path(), "zelvek", [](const std::string&) { return "<doc/>"; });
    vek_client::Local("zelvek", "test").Query("func=a");
    EXPECT_EQ(LastSetting(CURLOPT_TIMEOUT), 600);
}

// Behaviour: They are 30 seconds, 60 seconds and 5 minutes; a query to a service may take 10 minutes
TEST(TransferSettings, GiveAnExchangeFiveMinutesAndStepsOfItLess) {
    Exchange();
    EXPECT_EQ(LastSetting(CURLOPT_TIMEOUT), 300);
    EXPECT_EQ(LastSetting(CURLOPT_CONNECTTIMEOUT), 30);
    EXPECT_EQ(LastSetting(CURLOPT_LOW_SPEED_TIME), 60);
    EXPECT_EQ(LastSetting(CURLOPT_LOW_SPEED_LIMIT), 1);
}

// Behaviour: An exchange can be given less time
TEST(TransferSettings, GiveAnExchangeLessTimeWhereItIsToldSo) {
    const vek_test::Server server([](vek_test::Connection& connection) {
        connection.ReadRequest();
        connection.Write(vek_test::Answer(200, "", "ok"));
    });
    vek_rpc::HttpQuery query;
    query.Limit(std::chrono::seconds{5}, 1000);
    std::ostringstream out;
    query.Get(server.url(), out);
    EXPECT_EQ(LastSetting(CURLOPT_TIMEOUT), 5);
    EXPECT_EQ(LastSetting(CURLOPT_CONNECTTIMEOUT), 5);
}

// Behaviour: Every exchange has a connection of its own ...
TEST(TransferSettings, KeepATransferToItsThreadAndItsConnection) {
    Exchange();
    EXPECT_EQ(LastSetting(CURLOPT_NOSIGNAL), 1);
    EXPECT_EQ(LastSetting(CURLOPT_QUICK_EXIT), 1);
    EXPECT_EQ(LastSetting(CURLOPT_FRESH_CONNECT), 1);
    EXPECT_EQ(LastSetting(CURLOPT_FORBID_REUSE), 1);
    EXPECT_EQ(LastSetting(CURLOPT_HTTP_VERSION), CURL_HTTP_VERSION_1_1);
    EXPECT_EQ(LastSetting(CURLOPT_FOLLOWLOCATION), 0);
    EXPECT_EQ(LastSetting(CURLOPT_SSL_VERIFYPEER), 1);
    EXPECT_EQ(LastSetting(CURLOPT_SSL_VERIFYHOST), 2);
    EXPECT_EQ(LastSetting(CURLOPT_SSLVERSION), CURL_SSLVERSION_TLSv1_2);
}

// Behaviour: Threads may make exchanges at once ...
TEST(TransferSettings, ShareNamesAndSessionsUnderLocks) {
    Exchange();
    EXPECT_TRUE(vek_test::IsShared(CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS));
    EXPECT_TRUE(vek_test::IsShared(CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION));
    for (const auto option : {CURLSHOPT_LOCKFUNC, CURLSHOPT_UNLOCKFUNC, CURLSHOPT_USERDATA})
        EXPECT_TRUE(vek_test::IsCommon(option)) << option;
}

// Behaviour: Threads may make exchanges at once ...
TEST(TransferSettings, AreGivenBackWithTheirTransfer) {
    vek_test::ForgetSettings();
    Exchange();
    EXPECT_EQ(vek_test::CountOfEnded(), 1);
    EXPECT_TRUE(vek_test::IsFreed(LastSetting(CURLOPT_HTTPHEADER).value_or(0)));
}

// Whether an exchange looks roots up in this system's folder, and does not parse the whole store.
bool LooksUpIn(const char* folder) {
    vek_test::SetSystemFolder(folder);
    vek_test::ForgetSettings();
    Exchange();
    const bool keeps_folder = !LastSetting(CURLOPT_CAPATH);
    EXPECT_EQ(LastSetting(CURLOPT_CAINFO), keeps_folder ? std::optional(0L) : std::nullopt);
    EXPECT_EQ(LastSetting(CURLOPT_CAPATH), keeps_folder ? std::nullopt : std::optional(0L));
    EXPECT_EQ(LastSetting(CURLOPT_CA_CACHE_TIMEOUT), keeps_folder ? std::nullopt : std::optional(-1L));
    return keeps_folder;
}

// Behaviour: Without VEK_CA_FILE the system's roots are ...
TEST(TransferSettings, LookRootsUpInAHashedFolderOfTheSystem) {
    const vek_test::Variable unset("VEK_CA_FILE", "");
    const vek_test::TempFolder folder;
    const std::string path = folder.path();
    EXPECT_FALSE(LooksUpIn(nullptr));
    EXPECT_FALSE(LooksUpIn((path + "/missing").c_str()));
    EXPECT_FALSE(LooksUpIn("/dev/null")) << "no folder";
    for (const char* name : {"ca.crt", "root-one.0", "5ed36f99.pem", "5ed36f9.0", "5ed36f99.01"}) {
        std::ofstream(folder.file(name)) << "";
        EXPECT_EQ(LooksUpIn(path.c_str()), name == std::string("root-one.0")) << name;
        std::filesystem::remove(folder.file(name));
    }
    std::ofstream(folder.file("5ed36f99.0")) << "";
    EXPECT_TRUE(LooksUpIn(path.c_str()));
    const vek_test::Variable set("VEK_CA_FILE", "/dev/null");
    vek_test::ForgetSettings();
    Exchange();
    EXPECT_NE(LastSetting(CURLOPT_CAINFO), 0) << "a file that is named comes first";
    EXPECT_EQ(LastSetting(CURLOPT_CAPATH), 0);
}

// Whether roots are looked up in a folder whose only one has gone since the last exchange, when that does not
// show: it was changed so long ago, both times.
bool LooksUpWhereNothingIsLeft(std::chrono::seconds ago) {
    const vek_test::TempFolder folder;
    const auto changed = std::filesystem::file_time_type::clock::now() - ago;
    std::ofstream(folder.file("5ed36f99.0")) << "";
    std::filesystem::last_write_time(folder.path(), changed);
    EXPECT_TRUE(LooksUpIn(folder.path().c_str()));
    std::filesystem::remove(folder.file("5ed36f99.0"));
    std::filesystem::last_write_time(folder.path(), changed);
    const bool looks_up = LooksUpIn(folder.path().c_str());
    std::filesystem::last_write_time(folder.path(), changed - std::chrono::seconds{1});
    EXPECT_FALSE(LooksUpIn(folder.path().c_str())) << "its change shows";
    return looks_up;
}

// Behaviour: The system's folder of roots is read once while it stays as it is; one that has changed a moment
// ago
//   is read by every exchange
TEST(TransferSettings, ReadTheFolderOfTheSystemOnce) {
    const vek_test::Variable unset("VEK_CA_FILE", "");
    EXPECT_TRUE(LooksUpWhereNothingIsLeft(std::chrono::hours{1}));
    EXPECT_TRUE(LooksUpWhereNothingIsLeft(std::chrono::seconds{3}));
    EXPECT_FALSE(LooksUpWhereNothingIsLeft(std::chrono::seconds{0}));
    EXPECT_FALSE(LooksUpWhereNothingIsLeft(std::chrono::hours{-1})) << "the clock was set back";
}

// How an exchange ends in which this function of libcurl's fails.
std::string EndWith(const std::string& failing) {
    FailOnce(failing);
    try {
        Exchange();
        return "ok";
    } catch (const vek_err::Error& e) {
        return e.type() + "/" + e.what();
    } catch (const std::bad_alloc&) {
        return "memory";
    }
}

// Behaviour: A failure of libcurl's own is an error that says what failed, want of memory is
//   `std::bad_alloc`, and the next exchange goes through
TEST(TransferFailure, IsAnErrorOfTheExchange) {
    EXPECT_EQ(EndWith("curl_easy_setopt"), "setup/curl: setup: An unknown option was passed in to libcurl");
    EXPECT_EQ(EndWith("curl_multi_add_handle"), "exchange/http: exchange: Invalid multi handle");
    EXPECT_EQ(EndWith("curl_multi_perform"), "exchange/http: exchange: Internal error");
    EXPECT_EQ(EndWith("curl_multi_poll"), "exchange/http: exchange: Out of memory");
    EXPECT_EQ(EndWith("curl_multi_info_read"), "exchange/http: exchange: 127.0.0.1: Failed initialization");
    EXPECT_EQ(EndWith(""), "ok");
}

// Behaviour: A failure of libcurl's own is an error that ...
TEST(TransferFailure, IsOneOfMemoryWhereThereIsNone) {
    EXPECT_EQ(EndWith("curl_easy_init"), "memory");
    EXPECT_EQ(EndWith("curl_slist_append"), "memory");
    EXPECT_EQ(EndWith(""), "ok");
}

// What is made once, for all exchanges of a process: in a process of their own.
class FirstTransfer : public testing::Test {
protected:
    FirstTransfer() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // The exit status says whether a second exchange goes through.
    static void RunTwice(const std::string& failing) {
        std::cerr << "first: " << EndWith(failing);
        std::_Exit(EndWith("") == "ok" ? 0 : 1);
    }
};

// Behaviour: A failure of libcurl's own is an error that ...
TEST_F(FirstTransfer, ThatFailsForWantOfMemoryMayBeTriedAgain) {
    EXPECT_EXIT(RunTwice("curl_share_init"), testing::ExitedWithCode(0), "first: memory");
    EXPECT_EXIT(RunTwice("curl_multi_init"), testing::ExitedWithCode(0), "first: memory");
}

// Behaviour: A failure of libcurl's own is an error that ...
TEST_F(FirstTransfer, CannotDoWithoutTheLibrary) {
    EXPECT_EXIT(RunTwice("curl_global_init"), testing::ExitedWithCode(1),
                "first: setup/curl: setup: Failed initialization");
}

}  // namespace
