// Makes a finding of what would fail a test: a call of the double that nothing was scripted for, an answer
// never asked.
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class Findings : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) std::abort();  // gtest has printed it already
    }
};

const bool installed = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Findings);
    return true;
}();

}  // namespace
