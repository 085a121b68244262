// Exchanges over TLS: whom they trust, and what they share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <array>
#include <fstream>
#include <future>
#include <sstream>

#include "integration/vek/certificate.h"
#include "integration/vek/server.h"
#include "vek/err.h"
#include "vek/rpc.h"

namespace {

using vek_test::Authority;
using vek_test::Connection;
using vek_test::Server;

void SayOk(Connection& connection) {
    connection.ReadRequest();
    connection.Write(vek_test::Answer(200, "", "ok"));
}

std::string Get(const std::string& url) {
    vek_rpc::HttpQuery query;
    std::ostringstream out;
    try {
        query.Get(url, out);
    } catch (const vek_err::Error& e) {
        return e.what();
    }
    return out.str();
}

class Tls : public testing::Test {
protected:
    Tls() { std::ofstream(ca_file) << authority.Pem(); }

    std::string GetFrom(const vek_test::Leaf& leaf) const {
        const auto context = authority.MakeContext(leaf);
        const Server server(SayOk, context.get());
        return Get(server.url());
    }

    std::string GetWithVersion(int version) const {
        const auto context = authority.MakeContext({});
        SSL_CTX_set_min_proto_version(context.get(), version);
        SSL_CTX_set_max_proto_version(context.get(), version);
        SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");
        const Server server(SayOk, context.get());
        return Get(server.url());
    }

    vek_test::TempFolder folder;
    std::string ca_file = folder.file("roots.pem");
    Authority authority{"Root One"};
    vek_test::Variable roots{"VEK_CA_FILE", ca_file};
};

// Behaviours of: HTTP exchanges

// Behaviour: TLS trusts the roots of VEK_CA_FILE, where it is set, and no others; a missing file trusts
//   nobody
TEST_F(Tls, TrustsTheRootsOfItsFile) { EXPECT_EQ(GetFrom({}), "ok"); }

// Behaviour: TLS trusts the roots of VEK_CA_FILE, where ...
TEST_F(Tls, TrustsNoOtherRoot) {
    const Authority other("Root Two");
    const auto context = other.MakeContext({});
    const Server server(SayOk, context.get());
    EXPECT_THAT(Get(server.url()), testing::HasSubstr("certificate"));
}

// Behaviour: Without VEK_CA_FILE the system's roots are the trusted ones, looked up one by one where their
//   folder is hashed
// The system's store does not know the tests' authority.
TEST_F(Tls, TrustsTheSystemsRootsWithoutAFile) {
    const vek_test::Variable unset("VEK_CA_FILE", "");
    EXPECT_THAT(GetFrom({}), testing::HasSubstr("certificate"));
}

// Behaviour: TLS trusts the roots of VEK_CA_FILE, where ...
TEST_F(Tls, TrustsNobodyWhereItsFileIsMissing) {
    const vek_test::Variable missing("VEK_CA_FILE", folder.file("missing.pem"));
    EXPECT_NE(GetFrom({}), "ok");
}

// Behaviour: A certificate that has ended, or for another name, is refused, and the error names the host
TEST_F(Tls, RefusesACertificateThatHasEnded) {
    EXPECT_THAT(GetFrom({.days = -1}), testing::HasSubstr("expired"));
}

// Behaviour: A certificate that has ended, or for another ...
TEST_F(Tls, RefusesACertificateForAnotherName) {
    EXPECT_THAT(GetFrom({.names = "DNS:example.org"}), testing::HasSubstr("localhost"));
}

// Behaviour: A certificate that has ended, or for another ...
TEST_F(Tls, NamesTheHostInItsErrors) {
    EXPECT_THAT(GetFrom({.days = -1}), testing::StartsWith("http: exchange: localhost: "));
}

// Behaviour: TLS 1.2 and 1.3 are spoken, nothing earlier
TEST_F(Tls, SpeaksVersion12AndLater) {
    EXPECT_EQ(GetWithVersion(TLS1_2_VERSION), "ok");
    EXPECT_EQ(GetWithVersion(TLS1_3_VERSION), "ok");
    EXPECT_NE(GetWithVersion(TLS1_1_VERSION), "ok");
}

// Behaviour: The trust store is read once for many exchanges, and TLS sessions are resumed on new connections
// With the file gone, only a store that was kept can verify; no session is resumed, so every handshake
// verifies.
TEST_F(Tls, ReadsItsRootsOnceForManyExchanges) {
    const auto context = authority.MakeContext({});
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(context.get(), 0);
    int resumed = 0;
    const auto serve = [&resumed](Connection& connection) {
        resumed += SSL_session_reused(connection.ssl());
        SayOk(connection);
    };
    {
        const Server server(serve, context.get());
        EXPECT_EQ(Get(server.url()), "ok");
        std::filesystem::remove(ca_file);
        for (int i = 0; i < 14; ++i) EXPECT_EQ(Get(server.url()), "ok");
        EXPECT_EQ(server.connections(), 15);
    }
    EXPECT_EQ(resumed, 0);
}

// Behaviour: Threads may make exchanges at once
TEST_F(Tls, ServesManyThreads) {
    const auto context = authority.MakeContext({});
    const Server server(SayOk, context.get());
    std::array<std::future<std::string>, 12> exchanges;
    for (auto& exchange : exchanges) exchange = std::async(std::launch::async, Get, server.url());
    for (auto& exchange : exchanges) EXPECT_EQ(exchange.get(), "ok");
}

// Behaviour: The trust store is read once for many exchanges ...
TEST_F(Tls, ResumesSessionsOnNewConnections) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const auto context = authority.MakeContext({});
        SSL_CTX_set_max_proto_version(context.get(), version);
        std::vector<bool> resumed;
        const auto serve = [&resumed](Connection& connection) {
            resumed.push_back(SSL_session_reused(connection.ssl()) == 1);
            SayOk(connection);
        };
        {
            const Server server(serve, context.get());
            for (int i = 0; i < 3; ++i) EXPECT_EQ(Get(server.url()), "ok");
            EXPECT_EQ(server.connections(), 3);
        }
        EXPECT_THAT(resumed, testing::ElementsAre(false, true, true)) << std::hex << version;
    }
}

}  // namespace
