#include "zelvek/examination/public_address.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

// Behaviours of: What people are told about a job

// Behaviour: An examination connects to addresses alone that mean the same host to everybody: to none of this
//   machine, of private networks or of groups, in whatever form they are written
TEST(PublicAddress, IsNoneOfThisMachineOrOfAPrivateNetwork) {
    for (const char* address : {"0.0.0.0",
                                "10.1.2.3",
                                "100.64.0.1",
                                "100.127.255.255",
                                "127.0.0.1",
                                "127.255.0.1",
                                "169.254.169.254",
                                "172.16.0.1",
                                "172.31.255.255",
                                "192.0.0.8",
                                "192.168.1.1",
                                "198.18.0.1",
                                "198.19.255.255",
                                "2002:a00:1::1",
                                "224.0.0.1",
                                "255.255.255.255",
                                "::",
                                "::1",
                                "::ffff:127.0.0.1",
                                "::ffff:10.0.0.1",
                                "::127.0.0.1",
                                "64:ff9b::a00:1",
                                "fc00::1",
                                "fdff::1",
                                "fe80::1",
                                "fec0::1",
                                "ff02::1"}) {
        EXPECT_FALSE(IsPublicAddress(address)) << address;
        EXPECT_TRUE(IsAddress(address)) << address;
    }
    for (const char* address :
         {"1.1.1.1", "9.255.255.255", "11.0.0.1", "100.63.255.255", "100.128.0.1", "128.0.0.1", "169.253.0.1",
          "172.15.0.1", "172.32.0.1", "192.167.0.1", "203.0.113.7", "223.255.255.255", "::ffff:8.8.8.8",
          "2001:db8::1", "2606:4700::1111"}) {
        EXPECT_TRUE(IsPublicAddress(address)) << address;
    }
}

// Behaviour: An examination connects to addresses alone ...
TEST(PublicAddress, IsNoOtherText) {
    for (const std::string& text :
         {std::string(), std::string("localhost"), std::string("1.1.1"), std::string("1.1.1.1 "),
          std::string("0x7f.1"), std::string("[::1]"), std::string("fe80::1%lo"),
          std::string("1.1.1.1\0x", 9), std::string("-x"), std::string("1.1.1.1:80")}) {
        EXPECT_FALSE(IsAddress(text)) << text;
        EXPECT_FALSE(IsPublicAddress(text)) << text;
    }
}

}  // namespace
}  // namespace zelvek
