#pragma once

#include <json/json.h>

#include <memory>

#include "service.h"

namespace zelvek::testing {

inline Json::Value Parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors << text;
    return value;
}

/// A service, and what its command line says.
class CommandLine : public ServiceTest {
protected:
    /// The JSON text of a command that succeeds.
    Json::Value Json(std::vector<std::string> words) {
        words.emplace_back("--json");
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        return Parse(ended.out);
    }

    Ended Run(const std::string& certname, const std::vector<std::string>& options = {}) {
        Zelvek({"job", "add", "shop.example", "--user", "anna", "--certname", certname, "--foreign-names"});
        std::vector<std::string> words{"job", "run", "1", "--plugin", TEST_PLUGIN};
        words.insert(words.end(), options.begin(), options.end());
        return Zelvek(words);
    }
};

}  // namespace zelvek::testing
