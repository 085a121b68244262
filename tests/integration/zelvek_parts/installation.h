#pragma once

#include <gtest/gtest.h>

#include "unit/zelvek_parts/authority.h"
#include "unit/zelvek_parts/support.h"
#include "zelvek/certificates/install.h"

namespace parts {

/// A place for certificates, and one to be installed there.
class Installation : public testing::Test {
protected:
    zelvek::install::Request RequestFor(const Hierarchy& pki) const {
        return {"alice", "shop.example", pki.intermediate.Pem() + pki.leaf.Pem(), pki.leaf.KeyPem()};
    }

    Failure Try(const zelvek::install::Request& request) const {
        return FailureOf([&] { zelvek::install::Install(settings_, request); });
    }

    void ExpectInstalled(const Hierarchy& pki) const {
        EXPECT_EQ(Content(place_ / "fullchain.pem"), pki.leaf.Pem() + pki.intermediate.Pem());
        EXPECT_EQ(Content(place_ / "cert.pem"), pki.leaf.Pem());
        EXPECT_EQ(Content(place_ / "chain.pem"), pki.intermediate.Pem());
        EXPECT_EQ(Content(place_ / "privkey.pem"), pki.leaf.KeyPem());
    }

    TempFolder folder_;
    zelvek::install::Settings settings_{folder_.path() / "certs"};
    std::filesystem::path user_ = folder_.path() / "certs" / "alice";
    std::filesystem::path place_ = user_ / "shop.example";
    Hierarchy pki_;
};

}  // namespace parts
