#include "zelvek/publishing/dns_record.h"

#include <gmock/gmock.h>

#include "unit/zelvek_parts/support.h"

namespace {

using parts::TypeOf;
using zelvek::dns::CheckedNewRecord;
using zelvek::dns::CheckedRecord;
using zelvek::dns::Quoted;
using zelvek::dns::Record;

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A record's zone and name are kept in their lower-case ASCII form, without a final dot
TEST(DnsRecord, IsMadeOfCanonicalNames) {
    const Record record = CheckedRecord("Bücher.Example.", "_acme-challenge.WWW.Bücher.example.", "v");
    EXPECT_EQ(record.zone, "xn--bcher-kva.example");
    EXPECT_EQ(record.name, "_acme-challenge.www.xn--bcher-kva.example");
    EXPECT_TRUE(record.IsInZone());
}

// Behaviour: Zones hold names by whole labels; a name ...
TEST(DnsRecord, LiesInItsZoneByWholeLabels) {
    EXPECT_EQ(TypeOf([] { CheckedNewRecord("example.org", "example.org.", "v"); }), "none");
    EXPECT_EQ(TypeOf([] { CheckedNewRecord("example.org", "_acme-challenge.example.org.", "v"); }), "none");
    EXPECT_EQ(TypeOf([] { CheckedNewRecord("example.org", "_acme-challenge.badexample.org.", "v"); }),
              "value");
    EXPECT_EQ(TypeOf([] { CheckedNewRecord("example.org", "org.", "v"); }), "value");
    EXPECT_EQ(TypeOf([] { CheckedNewRecord("example.org", "example.org.evil.example", "v"); }), "value");
    EXPECT_FALSE(CheckedRecord("example.org", "other.example", "v").IsInZone());
}

// Behaviour: Names and values that are none, or would ...
TEST(DnsRecord, NamesCannotBringCommands) {
    for (const std::string& name :
         {std::string("a.example.org.\nsend\n"), std::string("a.example.org. 60 TXT x"),
          std::string("a;b.example.org"), std::string("a\\032b.example.org"), std::string("a\"b.example.org"),
          std::string("a..example.org"), std::string(), std::string("."), std::string("a\0b.example.org", 15),
          std::string(64, 'a') + ".example.org", std::string("$(id).example.org"),
          std::string("a.example.org..")}) {
        EXPECT_EQ(TypeOf([&] { CheckedRecord("example.org", name, "v"); }), "value") << name;
        EXPECT_EQ(TypeOf([&] { CheckedRecord(name, "a.example.org", "v"); }), "value") << name;
    }
}

// Behaviour: Names and values that are none, or would ...
TEST(DnsRecord, ValuesArePrintableAndShort) {
    EXPECT_EQ(TypeOf([] { CheckedRecord("example.org", "example.org", std::string(255, 'x')); }), "none");
    EXPECT_EQ(TypeOf([] { CheckedRecord("example.org", "example.org", "a \"b\" \\ ; c"); }), "none");
    for (const std::string& value :
         {std::string(), std::string(256, 'x'), std::string("a\nb"), std::string("a\rb"),
          std::string("a\0b", 3), std::string("\x7f"), std::string("\xc3\xbc"), std::string("\t")}) {
        EXPECT_EQ(TypeOf([&] { CheckedRecord("example.org", "example.org", value); }), "value") << value;
    }
}

// Behaviour: Any printable value arrives unchanged ...
TEST(DnsRecord, QuotesAndBackslashesAreEscaped) { EXPECT_EQ(Quoted("a\"b\\c;d"), "\"a\\\"b\\\\c;d\""); }

}  // namespace
