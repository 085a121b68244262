// Whether web servers show the certificates that are installed.
#include "zelvek/certificates/site_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <atomic>

#include "integration/vek/certificate.h"
#include "integration/vek/server.h"
#include "unit/zelvek_parts/support.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/certificates/openssl.h"
#include "zelvek/store/problems.h"

namespace zelvek {
namespace {

using parts::FailureOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using vek_test::Authority;
using vek_test::Connection;
using vek_test::Server;

std::string PemOf(const Authority::Context& context) {
    openssl::Certificate certificate(SSL_CTX_get0_certificate(context.get()));
    const std::string pem = openssl::Pem(certificate);
    [[maybe_unused]] const X509* kept = certificate.release();  // the context's
    return pem;
}

std::atomic<bool> asked_for_shop;  // by the last handshake, in the server's thread

class Sites : public ::testing::Test {
protected:
    Sites() : store_(folder_.path() / "zelvek.db"), old_(MakeContext()), new_(MakeContext()) {
        for (const auto* context : {&old_, &new_}) {
            SSL_CTX_callback_ctrl(context->get(), SSL_CTRL_SET_TLSEXT_SERVERNAME_CB,
                                  reinterpret_cast<void (*)()>(&NoteName));
        }
        asked_for_shop = false;
    }

    Authority::Context MakeContext() {
        return authority_.MakeContext({"DNS:*.shop.example,DNS:shop.example"});
    }

    static int NoteName(SSL* ssl, int* /*alert*/, void* /*unused*/) {
        const char* name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
        asked_for_shop = name != nullptr && std::string(name) == "shop.example";
        return SSL_TLSEXT_ERR_OK;
    }

    static void Serve(Connection& connection) { connection.AwaitEnd(); }

    static Site At(int port) { return {"127.0.0.1", port}; }

    /// Puts the certificate in place, and has it looked for at this port.
    void Install(const Authority::Context& certificate, int port) {
        parts::Put(folder_.path() / "cert.pem", PemOf(certificate));
        SiteWatch::Settings settings;
        settings.site = At(port);
        settings.first_pause = std::chrono::milliseconds{1};
        settings.longest_pause = std::chrono::seconds{0};
        settings.limit = std::chrono::milliseconds{2000};
        watch_.emplace(store_, settings);
        watch_->Expect("anna", "Shop.example", folder_.path());
    }

    served::Served Look(int times = 1) {
        for (int i = 0; i < times; ++i) watch_->LookAtDue();
        Transaction transaction(store_);
        return served::Find(transaction, "anna", "shop.example").value_or(served::Served{});
    }

    std::vector<problems::Problem> Problems() {
        Transaction transaction(store_);
        return problems::List(transaction, problems::State::kOpen, 0, 10);
    }

    parts::TempFolder folder_;
    Store store_;
    Authority authority_{"root"};
    Authority::Context old_, new_;
    std::optional<SiteWatch> watch_;
};

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: After an installation the service looks whether the web server shows the certificate for its
//   first name that is no wildcard
TEST_F(Sites, ThatShowTheCertificateAreFound) {
    const Server server(&Serve, new_.get());
    Install(new_, server.port());
    const auto seen = Look();
    EXPECT_EQ(seen.state, "served");
    EXPECT_EQ(seen.detail, "");
    EXPECT_TRUE(asked_for_shop);
    EXPECT_EQ(Look().state, "served");
    EXPECT_EQ(server.connections(), 1) << "nobody looks any more";
    EXPECT_TRUE(Problems().empty());
}

// Behaviour: Where to look may change while the service runs; where nobody is to look any more, nobody does
TEST_F(Sites, AreLookedAtWhereTheSettingsSay) {
    const Server server(&Serve, new_.get());
    Install(new_, 1);
    EXPECT_EQ(Look().state, "unreachable");
    SiteWatch::Settings settings;
    settings.wanted = false;
    settings.site = At(server.port());
    settings.first_pause = std::chrono::milliseconds{1};
    settings.longest_pause = std::chrono::seconds{0};
    watch_->Change(settings);
    EXPECT_EQ(Look().state, "unreachable");
    settings.wanted = true;
    watch_->Change(settings);
    EXPECT_EQ(Look().state, "served");
}

// Behaviour: A web server that still shows an older certificate is told with its address and that
//   certificate's date, the administrator from the sixth look on, until it shows the new one
TEST_F(Sites, ThatShowAnOlderCertificateAreTold) {
    const Server server(&Serve, old_.get());
    Install(new_, server.port());
    auto seen = Look();
    EXPECT_EQ(seen.state, "older");
    const std::string from = ReadLeaf(PemOf(old_)).lifetime.from.AsDateTime();
    EXPECT_EQ(seen.detail, "the web server at 127.0.0.1:" + std::to_string(server.port()) +
                               " still serves the one of " + from + " UTC");
    Look(4);
    EXPECT_TRUE(Problems().empty());
    Look(3);
    const auto told = Problems();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].name + " " + told[0].level + " " + told[0].owner, "old_certificate_served error root");
    EXPECT_THAT(told[0].parameters,
                ::testing::Contains(std::pair<std::string, std::string>("reason", seen.detail)));

    parts::Put(folder_.path() / "cert.pem", PemOf(old_));
    EXPECT_EQ(Look().state, "served") << "what is installed now is what the server shows";
    EXPECT_TRUE(Problems().empty());
}

// Behaviour: A web server that cannot be reached, or speaks no TLS, is told as that, and nobody is alarmed
TEST_F(Sites, ThatCannotBeReachedAlarmNobody) {
    int port = 0;
    {
        const Server plain([](Connection& connection) { connection.Write("220 hello\r\n"); });
        port = plain.port();
        Install(new_, port);
        auto seen = Look();
        EXPECT_EQ(seen.state, "unreachable");
        EXPECT_THAT(seen.detail, StartsWith("the TLS handshake failed: "));
    }
    const auto seen = Look(8);
    EXPECT_EQ(seen.state, "unreachable");
    EXPECT_EQ(seen.detail, "Connection refused");
    EXPECT_TRUE(Problems().empty());
    std::filesystem::remove(folder_.path() / "cert.pem");
    EXPECT_EQ(Look().detail, "the installed certificate cannot be read");
}

// Behaviour: A web server that says nothing costs a handshake's time limit
TEST_F(Sites, ThatSayNothingAreLeftInTime) {
    const Server silent([](Connection& connection) { connection.AwaitEnd(); });
    EXPECT_EQ(FailureOf([&] { CertificateAt(At(silent.port()), "a", std::chrono::milliseconds{100}); }).text,
              "no answer in time");
}

// Behaviour: What was told of a certificate goes with its job
TEST_F(Sites, AreForgottenWithTheJob) {
    const Server server(&Serve, old_.get());
    Install(new_, server.port());
    Look(7);
    EXPECT_EQ(Problems().size(), 1U);
    {
        Transaction transaction(store_);
        ForgetSite(transaction, "anna", "shop.example");
        transaction.Commit();
    }
    EXPECT_TRUE(Problems().empty());
    EXPECT_EQ(Look().state, "");
}

// Behaviour: The place where certificates are looked for is an address and a port
TEST(SiteText, IsAnAddressAndAPort) {
    EXPECT_EQ(ReadSite("192.0.2.1:8443").Text(), "192.0.2.1:8443");
    EXPECT_EQ(ReadSite("[2001:db8::1]:443").Text(), "[2001:db8::1]:443");
    EXPECT_EQ(ReadSite("[2001:db8::1]:443").address, "2001:db8::1");
    for (const char* text : {"", ":443", "192.0.2.1", "192.0.2.1:", "192.0.2.1:x", "192.0.2.1:65536",
                             "::1:443", "[192.0.2.1]:443", "shop.example:443", "192.0.2.1:443\n", "on"}) {
        EXPECT_EQ(parts::TypeOf([&] { ReadSite(text); }), "value") << text;
    }
    const auto sites = SitesOf("localhost", 1);
    ASSERT_EQ(sites.size(), 1U);
    EXPECT_EQ(sites[0].port, 443);
}

}  // namespace
}  // namespace zelvek
