#pragma once

#include <gmock/gmock.h>

#include "support/issuance.h"
#include "support/outcome.h"
#include "vek/err.h"

namespace ambrin_test {

/// A run of which something fails.
class FailingRun : public IssuanceTest {
protected:
    std::vector<std::string> Failures() const {
        std::vector<std::string> failures;
        for (const std::string& line : LogLines())
            if (line.starts_with("4 ")) failures.push_back(line.substr(2));
        return failures;
    }

    void FailPanelQuery(const std::string& pattern, const std::string& type) {
        world.AlwaysPanel(pattern, [type](const std::string&) -> std::string {
            throw vek_err::Error::Reported(type, "the panel says no");
        });
    }

    void UseStoredAccount() {
        job["kid"] = kStoredKid;
        job["acmekey"] = vek_double::FakePem("stored");
        job["modulus"] = FakeHeader(vek_double::FakePem("stored"));
    }

    /// Neither installation nor notification.
    void ExpectNothingInstalled() {
        EXPECT_THAT(Story(), ::testing::Not(::testing::Contains(::testing::HasSubstr("hardreplace"))));
        EXPECT_THAT(ProblemsRaised(), ::testing::IsEmpty());
        EXPECT_FALSE(ambrin_data.verified);
        EXPECT_FALSE(ambrin_data.failed);
    }
};

}  // namespace ambrin_test
