#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vek/err.h"
#include "vek/str.h"

namespace {

using str::puny::Encode;

void ExpectRefused(const std::string& name) {
    try {
        const std::string encoded = Encode(name);
        ADD_FAILURE() << name << " became " << encoded;
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "puny");
        EXPECT_THAT(e.what(), testing::HasSubstr(name.c_str()));
    }
}

struct Vector {
    const char* name;
    const char* ascii;
};

class Rfc3492 : public testing::TestWithParam<Vector> {};

// Behaviours of: Texts, dates, names, XML

// Behaviour: Names become their IDNA2008 ASCII form label by label; the published samples hold
TEST_P(Rfc3492, SampleBecomesItsAsciiForm) { EXPECT_EQ(Encode(GetParam().name), GetParam().ascii); }

// RFC 3492 section 7.1 as labels: lower-case letters, because names are mapped before. (A) ends with a mark
// that stands in no name, (H) is too long for a label, (S) is ASCII; they have tests of their own.
INSTANTIATE_TEST_SUITE_P(
    Section7_1, Rfc3492,
    testing::Values(
        Vector{"他们为什么不说中文", "xn--ihqwcrb4cv8a8dqg056pqjye"},
        Vector{"他們爲什麽不說中文", "xn--ihqwctvzc91f659drss3x8bo0yb"},
        Vector{"Pročprostěnemluvíčesky", "xn--proprostnemluvesky-uyb24dma41a"},
        Vector{"למההםפשוטלאמדבריםעברית", "xn--4dbcagdahymbxekheh6e0a7fei0b"},
        Vector{"यहलोगहिन्दीक्योंनहींबोलसकतेहैं", "xn--i1baa7eci9glrd9b2ae1bj0hfcgg6iyaf8o0a1dig0cd"},
        Vector{"なぜみんな日本語を話してくれないのか", "xn--n8jok5ay5dzabd5bym9f0cm5685rrjetr6pdxa"},
        Vector{"почемужеонинеговорятпорусски", "xn--b1abfaaepdrnnbgefbadotcwatmq2g4l"},
        Vector{"PorquénopuedensimplementehablarenEspañol",
               "xn--porqunopuedensimplementehablarenespaol-fmd56a"},
        Vector{"TạisaohọkhôngthểchỉnóitiếngViệt", "xn--tisaohkhngthchnitingvit-kjcr8268qyxafd2f1b9g"},
        Vector{"3年B組金八先生", "xn--3b-ww4c5e180e575a65lsy2b"},
        Vector{"安室奈美恵-with-SUPER-MONKEYS", "xn---with-super-monkeys-pc58ag80a8qai00g7n9n"},
        Vector{"Hello-Another-Way-それぞれの場所", "xn--hello-another-way--fc4qua05auwb3674vfr0b"},
        Vector{"ひとつ屋根の下2", "xn--2-u9tlzr9756bt3uc0v"},
        Vector{"MajiでKoiする5秒前", "xn--majikoi5-783gue6qz075azm5e"},
        Vector{"パフィーdeルンバ", "xn--de-jg4avhby1noc0d"},
        Vector{"そのスピードで", "xn--d9juau41awczczp"}));

// Behaviour: Names become their IDNA2008 ASCII form label ...
TEST(Puny, EncodesLabelByLabel) {
    EXPECT_EQ(Encode("пример.рф"), "xn--e1afmkfd.xn--p1ai");
    EXPECT_EQ(Encode("*.bücher.example"), "*.xn--bcher-kva.example");
    EXPECT_EQ(Encode("_acme-challenge.bücher.example."), "_acme-challenge.xn--bcher-kva.example.");
    EXPECT_EQ(Encode(".ü"), ".xn--tda");
    EXPECT_EQ(Encode("ü..de"), "xn--tda..de");
}

// Behaviour: A label that is ASCII passes unchanged: "*", underscores, blanks, nothing
TEST(Puny, LeavesAsciiAsItIs) {
    for (const std::string name :
         {"", ".", "*", "*.Example.ORG", "_dmarc", "a b", "-> $1.00 <-", "xn--bcher-kva", "xn--", "-a-"}) {
        EXPECT_EQ(Encode(name), name);
    }
    const std::string long_label(300, 'a');
    EXPECT_EQ(Encode(long_label), long_label);
    const std::string nul("a\0b", 3);
    EXPECT_EQ(Encode(nul), nul);
}

// Behaviour: Names become their IDNA2008 ASCII form label ...
TEST(Puny, IsThatOfIdna2008) { EXPECT_EQ(Encode("faß.de"), "xn--fa-hia.de"); }

// Behaviour: Names become their IDNA2008 ASCII form label ...
TEST(Puny, MapsCaseAndWidthAndComposes) {
    EXPECT_EQ(Encode("BÜCHER.de"), "xn--bcher-kva.de");
    EXPECT_EQ(Encode("ｅxample.com"), "example.com");
    EXPECT_EQ(Encode("u\u0308ber.de"), Encode("über.de"));
}

// Behaviour: Names become their IDNA2008 ASCII form label ...
TEST(Puny, KeepsAJoinerWhereItBelongs) { EXPECT_EQ(Encode("क\u094d\u200dष"), "xn--11b2ezcw70k"); }

// Behaviour: What has no ASCII form is an error, never a shorter name
TEST(Puny, RefusesWhatHasNoAsciiForm) {
    ExpectRefused("☃.net");
    ExpectRefused("ليهمابتكلموشعربي؟");
    ExpectRefused("-ü.de");
    ExpectRefused("ü-.de");
    ExpectRefused("aa--ü.de");
    ExpectRefused("xn--zzzzé.de");
    ExpectRefused("a\u200db.de");
}

// Behaviour: What has no ASCII form is an error, never ...
// libidn2 can drop such characters and report success.
TEST(Puny, SaysWhyItRefuses) {
    const auto said = [](const std::string& name) -> std::string {
        try {
            return Encode(name);
        } catch (const vek_err::Error& e) {
            return e.what();
        }
    };
    const std::string head = "str: puny: ";
    EXPECT_EQ(said("a\u00adb.com"),
              head + "a\u00adb.com (a label holds a character that its ASCII form would drop)");
    EXPECT_EQ(said("℀.de"), head + "℀.de (a label's ASCII form is no label)");
    EXPECT_EQ(said("\xff"), head + "\xff (string encoding error)");
}

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, RefusesRatherThanShortens) {
    ExpectRefused("ü b.de");
    ExpectRefused("ü*.de");
    ExpectRefused("*ü.de");
    ExpectRefused("\u00ad.com");
    ExpectRefused("a\u00adb.com");
    ExpectRefused("a\u200bü.com");
    ExpectRefused("ü\ufe0f.com");
}

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, TakesNoOtherCharacterForASeparator) {
    ExpectRefused("ü。b");
    ExpectRefused("a．b");
    ExpectRefused("。");
}

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, RefusesAFormThatIsNoLabel) { ExpectRefused("℀.de"); }

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, RefusesTextThatIsNoUtf8) {
    ExpectRefused("\xff\xfe.de");
    ExpectRefused("\xc3.de");
    ExpectRefused("\xed\xa0\x80.de");
}

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, RefusesANulByteAmongOthers) { ExpectRefused(std::string("ü\0", 3) + "x.de"); }

// Behaviour: What has no ASCII form is an error, never ...
TEST(Puny, RefusesALabelThatIsTooLong) {
    ExpectRefused("세계의모든사람들이한국어를이해한다면얼마나좋을까");
    std::string name;
    while (Encode(name + "ü").size() < 63) name += "ü";
    EXPECT_EQ(Encode(name + "ü").size(), 63U);
    ExpectRefused(name + "üü");
    std::string wide;
    for (int i = 0; i < 63; ++i) wide += "ｅ";
    EXPECT_EQ(Encode(wide), std::string(63, 'e'));
    ExpectRefused(wide + "ｅ");
}

}  // namespace
