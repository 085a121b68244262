#include <gtest/gtest.h>

#include "contract/world.h"
#include "double/vek_double.h"
#include "vek/log.h"

namespace contract {

struct World::Outside {
    vek_double::World world;
    int exchanges = 0;
};

World::World() : outside_(std::make_unique<Outside>()) { outside_->world.CloseLog(); }

World::~World() = default;

void World::PrepareChild(const std::string& command, const std::string& input, const std::string& output,
                         int status) {
    outside_->world.AlwaysChild(command, [=](const std::string& fed) {
        EXPECT_EQ(fed, input) << command;
        return vek_double::ChildAnswer{output, status};
    });
}

void World::PrepareAnswer(const std::string& query, const std::string& xml) {
    outside_->world.AnswerPanel(query, xml);
}

std::string World::PrepareExchange(const std::string& method, const Reply& reply) {
    const std::string url = "https://contract.test/" + std::to_string(++outside_->exchanges);
    outside_->world.AnswerHttp(method + " " + url, {reply.status, reply.header_lines, reply.body, ""});
    return url;
}

void World::OpenLog(int level) { vek_log::Init("contract", level); }

std::vector<std::string> World::LogTexts() {
    std::vector<std::string> texts;
    for (const vek_double::Call& call : outside_->world.calls())
        if (call.kind == "log") texts.push_back(call.text.substr(call.text.find(' ') + 1));
    return texts;
}

std::string World::KeyPem() { return vek_double::FakePem("contract", 2048); }

}  // namespace contract
