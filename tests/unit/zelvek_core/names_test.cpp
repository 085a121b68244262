#include "zelvek/base/names.h"

#include <gtest/gtest.h>

#include "zelvek/base/error.h"

namespace zelvek::names {
namespace {

template <class Check>
bool Passes(const Check& check) {
    try {
        check();
        return true;
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kValue);
        return false;
    }
}

bool IsUser(const std::string& user) {
    return Passes([&] { CheckUser(user); });
}
bool IsCertname(const std::string& name) {
    return Passes([&] { CheckCertname(name); });
}
bool IsDomain(const std::string& name, bool wildcard = false) {
    return Passes([&] { CheckDomain(name, wildcard); });
}

// Behaviours of: Command line

// Behaviour: What a job is added with is checked ...
TEST(Users, AreShortWordsOfPlainCharacters) {
    for (const char* user : {"anna", "a", "A.b_c-9", "_x"}) EXPECT_TRUE(IsUser(user)) << user;
    for (const char* user : {"", ".", "..", ".a", "-a", "a b", "a/b", "a%b", "ä", "a\n"})
        EXPECT_FALSE(IsUser(user)) << user;
    EXPECT_FALSE(IsUser(std::string("a\0b", 3)));
    EXPECT_FALSE(IsUser(std::string(300, 'a')));
}

// Behaviour: What a job is added with is checked ...
TEST(CertificateNames, CanBeFolders) {
    for (const char* name : {"shop.example", "*.shop.example", "bücher.example", "My certificate", "a%#%b"}) {
        EXPECT_TRUE(IsCertname(name)) << name;
    }
    for (const char* name : {"", ".", "..", ".a", "-a", "a/b", "../x", "a\nb", "a\x7f", "\xff"}) {
        EXPECT_FALSE(IsCertname(name)) << name;
    }
    EXPECT_FALSE(IsCertname(std::string("a\0b", 3)));
}

// Behaviour: A name is as long as a certificate's folder can be called, 230 bytes in its ASCII form
TEST(CertificateNames, AreAsLongAsFoldersNamesCanBe) {
    EXPECT_TRUE(IsCertname(std::string(230, 'a')));
    EXPECT_FALSE(IsCertname(std::string(231, 'a')));
    EXPECT_TRUE(IsCertname("*." + std::string(220, 'a')));
    EXPECT_FALSE(IsCertname("*." + std::string(221, 'a'))) << "its folder begins with \"_wildcard.\"";
    EXPECT_TRUE(IsUser(std::string(230, 'a')));
    EXPECT_FALSE(IsUser(std::string(231, 'a')));
    try {
        CheckCertname(std::string(231, 'a'));
    } catch (const Error& error) {
        EXPECT_EQ(error.object(), "certname");
        EXPECT_EQ(error.value(), std::string(231, 'a'));
        EXPECT_EQ(error.sentence(),
                  "the certificate's name \"" + std::string(231, 'a') +
                      "\" is too long for a folder's name: it has 231 bytes, 230 are possible");
    }
}

// Behaviour: Two names are one certificate's where their folders differ by letter case at most
TEST(CertificateNames, AreComparedByTheirFolders) {
    EXPECT_EQ(CertificateFolder("*.Shop.example"), "_wildcard.Shop.example");
    EXPECT_EQ(ComparedFolder("*.Shop.example"), "_wildcard.shop.example");
    EXPECT_EQ(ComparedFolder("_WILDCARD.shop.EXAMPLE"), "_wildcard.shop.example");
    EXPECT_EQ(ComparedFolder("BÜCHER.example"), ComparedFolder("xn--BCHER-kva.example"));
    EXPECT_EQ(ComparedFolder("My Certificate"), "my certificate");
    EXPECT_NE(ComparedFolder("www.shop.example"), ComparedFolder("shop.example"));
}

// Behaviour: What a job is added with is checked ...
TEST(DomainNames, HaveLabelsOfLettersDigitsHyphensAndUnderscores) {
    const std::string label(63, 'a');
    for (const std::string& name :
         {std::string("shop.example"), std::string("localhost"), std::string("_x.a-b.example"),
          std::string("bücher.example"), std::string("xn--bcher-kva.example"), std::string("1.example"),
          label + ".example", label + "." + label + "." + label + "." + std::string(61, 'a')}) {
        EXPECT_TRUE(IsDomain(name)) << name;
    }
    for (const std::string& name :
         {std::string(), std::string("."), std::string("a."), std::string(".a"), std::string("a..b"),
          std::string("-a.b"), std::string("a-.b"), std::string("a b.c"), std::string("a/b"),
          std::string("a\n"), std::string("\xff.a"), std::string("192.0.2.1"), "a" + label + ".example",
          label + "." + label + "." + label + "." + std::string(62, 'a'), std::string("*.a"),
          std::string("a\0b", 3)}) {
        EXPECT_FALSE(IsDomain(name)) << name;
    }
}

// Behaviour: What a job is added with is checked ...
TEST(DomainNames, MayHaveAWildcardAsTheirFirstLabelWhereItIsAllowed) {
    EXPECT_TRUE(IsDomain("*.shop.example", true));
    EXPECT_TRUE(IsDomain("*.bücher.example", true));
    for (const char* name : {"*", "*.", "a.*.b", "**.a", "*a.b", "*.*.a"})
        EXPECT_FALSE(IsDomain(name, true)) << name;
}

// Behaviour: A text is what XML can carry; every byte sequence that it cannot is marked
TEST(Texts, AreWhatXmlCarries) {
    for (const std::string& text :
         {std::string(), std::string("\t\n\r "), std::string("ü東\xf0\x9f\x94\x91"), std::string("\x7f"),
          std::string("\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbd\xf4\x8f\xbf\xbf")}) {
        EXPECT_TRUE(IsText(text)) << text;
        EXPECT_EQ(MakeText(text), text);
    }
    for (const std::string& text :
         {std::string("\0", 1), std::string("\x01"), std::string("\x1f"), std::string("\x80"),
          std::string("\xc3"), std::string("\xc0\x80"), std::string("\xe0\x80\x80"),
          std::string("\xed\xa0\x80"), std::string("\xef\xbf\xbe"), std::string("\xef\xbf\xbf"),
          std::string("\xf4\x90\x80\x80"), std::string("\xf8\x88\x80\x80\x80"),
          std::string("\xf0\x9f\x94")}) {
        EXPECT_FALSE(IsText("a" + text + "b"));
        EXPECT_TRUE(IsText(MakeText("a" + text + "b")));
        EXPECT_TRUE(MakeText("a" + text + "b").starts_with("a\xef\xbf\xbd"));
        EXPECT_TRUE(MakeText("a" + text + "b")
                        .ends_with("\xef\xbf\xbd"
                                   "b"));
    }
}

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: Zones hold names by whole labels; a name ...
TEST(Zones, HoldThemselvesAndWhatLiesBelow) {
    EXPECT_TRUE(ZoneContains("shop.example", "shop.example"));
    EXPECT_TRUE(ZoneContains("shop.example", "a.b.shop.example"));
    EXPECT_FALSE(ZoneContains("shop.example", "workshop.example"));
    EXPECT_FALSE(ZoneContains("shop.example", "example"));
    EXPECT_FALSE(ZoneContains("", "example"));
    EXPECT_EQ(ZonesContaining({"example", "b.example", "c.example", "a.b.example"}, "x.a.b.example"),
              (std::vector<std::string>{"a.b.example", "b.example", "example"}));
}

// Behaviour: A wildcard's name is the one that it stands below
TEST(Zones, HoldWildcardsByTheNameBelowWhichTheyStand) {
    EXPECT_EQ(WithoutWildcard("*.shop.example"), "shop.example");
    EXPECT_EQ(WithoutWildcard("shop.example"), "shop.example");
    EXPECT_EQ(WithoutWildcard("a*.shop.example"), "a*.shop.example");
}

// Behaviour: Names are compared in one form: ASCII, lower ...
TEST(Zones, AreComparedInOneForm) {
    EXPECT_EQ(Canonical("Shop.EXAMPLE."), "shop.example");
    EXPECT_EQ(Canonical("bücher.Example"), "xn--bcher-kva.example");
    EXPECT_EQ(Canonical(""), "");
    try {
        Canonical("b\xff.example", "plid");
        ADD_FAILURE() << "it has no ASCII form";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kValue);
        EXPECT_EQ(error.object(), "plid");
        EXPECT_EQ(error.value(), "b\xff.example");
    }
}

}  // namespace
}  // namespace zelvek::names
