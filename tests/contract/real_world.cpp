// The outside of the contract's tests, made of real processes, sockets and files.
#include <gtest/gtest.h>

#include <fstream>

#include "contract/world.h"
#include "integration/vek/server.h"
#include "vek/crypto.h"
#include "vek/log.h"
#include "vek/str.h"

namespace contract {

using vek_test::Connection;

struct World::Outside {
    vek_test::TempFolder folder;
    vek_test::Variable run_dir{"VEK_RUN_DIR", folder.path()};
    vek_test::Variable log_dir{"VEK_LOG_DIR", folder.path()};
    std::unique_ptr<vek_test::Service> service;
    std::unique_ptr<vek_test::Server> server;
};

World::World() : outside_(std::make_unique<Outside>()) {}
World::~World() = default;

// The real shell knows what the command does.
void World::PrepareChild(const std::string& /*command*/, const std::string& /*input*/,
                         const std::string& /*output*/, int /*status*/) {}

void World::PrepareAnswer(const std::string& query, const std::string& xml) {
    const auto respond = [query, xml](const std::string& asked) {
        EXPECT_EQ(asked, query);
        return xml;
    };
    outside_->service = std::make_unique<vek_test::Service>(outside_->folder.path(), "contract", respond);
}

std::string World::PrepareExchange(const std::string& method, const Reply& reply) {
    const auto answer = [method, reply](Connection& connection) {
        EXPECT_EQ(connection.ReadRequest().head.substr(0, method.size() + 2), method + " /");
        connection.Write(vek_test::Answer(reply.status, reply.header_lines, reply.body));
    };
    outside_->server = std::make_unique<vek_test::Server>(answer);
    return outside_->server->url();
}

void World::OpenLog(int level) { vek_log::Init("contract", level); }

std::vector<std::string> World::LogTexts() {
    constexpr int kWordsAhead = 5;  // date, time, process, level, module
    std::vector<std::string> texts;
    std::ifstream file(outside_->folder.file("contract.log"));
    for (std::string line; std::getline(file, line);) {
        for (int word = 0; word < kWordsAhead; ++word) str::GetWord(line, ' ');
        texts.push_back(line);
    }
    return texts;
}

std::string World::KeyPem() {
    static const std::string pem = vek_crypto::pem_private::Encode(vek_crypto::RsaPrivateKey(2048));
    return pem;
}

}  // namespace contract
