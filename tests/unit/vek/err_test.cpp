#include "vek/err.h"

#include <gtest/gtest.h>

namespace {

// Behaviours of: Queries to a local service

// Behaviour: An error of a module is "module: code: value", an error of the service its message alone
TEST(Error, OfAModuleNamesModuleCodeAndValue) {
    const vek_err::Error error("ambrin", "sha_error", "output");
    EXPECT_EQ(error.type(), "sha_error");
    EXPECT_STREQ(error.what(), "ambrin: sha_error: output");
}

// Behaviour: An error of a module is "module: code: value" ...
TEST(Error, OfAServiceIsItsMessageAlone) {
    const auto error = vek_err::Error::Reported("exists", "The record exists already");
    EXPECT_EQ(error.type(), "exists");
    EXPECT_STREQ(error.what(), "The record exists already");
}

}  // namespace
