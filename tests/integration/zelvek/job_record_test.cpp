// The job record over the socket: what a plug-in reads is what it wrote, and who may write.
#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

namespace {

class JobRecord : public ServiceTest {
protected:
    JobRecord() { Start(); }

    std::string Stored(const std::string& id, const std::string& key) {
        return Ask("func=ambrin.data.edit&out=xml", {{"elid", id}}).value(key);
    }
};

// Behaviours of: The job's record (ambrin.data.edit)

// Behaviour: A job's record holds what the job was added with, the ASCII form of its certificate's name among
//   the CSR's parameters
TEST_F(JobRecord, HoldsWhatTheJobWasAddedWith) {
    const std::string id = AddJob({{"domain", "shop.example"},
                                   {"aliases", "www.shop.example shop.example"},
                                   {"check_type", "dns"},
                                   {"res_name", "team"},
                                   {"certname", "bücher.example"},
                                   {"csr_key_type", "ec"},
                                   {"csr_organization", "A & B = C"},
                                   {"skip_account_check", "on"},
                                   {"max_account_check_attempts", "7"}});
    const auto record = Ask("func=ambrin.data.edit&elid=" + id + "&out=xml");
    const std::map<std::string, std::string> expected{
        {"elid", id},
        {"domain", "shop.example"},
        {"aliases", "shop.example www.shop.example"},
        {"certname", "bücher.example"},
        {"check_type", "dns"},
        {"user_name", "anna"},
        {"res_name", "team"},
        {"csr_internal_request",
         "certname_ascii=xn--bcher-kva.example&key_type=ec&organization=A%20%26%20B%20%3D%20C"},
        {"skip_account_check", "on"},
        {"max_account_check_attempts", "7"},
        {"attempt_count", "0"},
        {"account_check_count", "0"},
        {"verified", "off"},
        {"failed", "off"},
        {"force_update", "off"},
        {"kid", ""},
        {"acmekey", ""},
        {"modulus", ""},
        {"challenges", ""},
        {"finalize", ""},
        {"finalize_check", ""},
        {"next_attempt", ""},
        {"default_kid", ""},
        {"default_pem", ""}};
    for (const auto& [key, value] : expected) EXPECT_EQ(record.value(key), value) << key;
    EXPECT_EQ(record.value("time_started").size(), 19U);
}

// Behaviour: Every text is taken as it is, white space ...
// Behaviour: Values travel unchanged both ways, as do ...
TEST_F(JobRecord, ValuesOfEveryKindTravelUnchangedBothWays) {
    const std::string id = AddJob();
    const std::vector<std::string> values{"a=b&c=d?e+f%20g%",
                                          "\"double\" 'single' <angle> &amp; ]]>",
                                          "line\nfeed\r\nand CR alone\r.",
                                          "  leading and trailing  ",
                                          " ",
                                          "\n",
                                          "\t",
                                          "Grüße, 東京, \xf0\x9f\x94\x91",
                                          std::string(300000, 'x'),
                                          "{\"a\" : [\"\\u0001\"]}\n"};
    for (const auto& value : values) {
        ReadJob(id);
        PublishAnswer();
        Write(id, {{"challenges", value}, {"kid", value}, {"acmekey", value}});
        EXPECT_EQ(Stored(id, "challenges"), value);
        EXPECT_EQ(Stored(id, "kid"), value);
        EXPECT_EQ(Stored(id, "acmekey"), value);
    }
}

// Behaviour: Every key that a program sends is stored
TEST_F(JobRecord, StoresEveryKeyThatAProgramSends) {
    const std::string id = AddJob();
    const std::map<std::string, std::string> entries{{"kid", "https://ca.example/acct/1"},
                                                     {"acmekey", "KEY"},
                                                     {"modulus", "00ab"},
                                                     {"finalize", "https://ca.example/f"},
                                                     {"finalize_check", "o"},
                                                     {"challenges", "c"},
                                                     {"next_attempt", "2031-02-03 04:05:06"},
                                                     {"attempt_count", "3"},
                                                     {"account_check_count", "-2"},
                                                     {"verified", "on"},
                                                     {"failed", "on"},
                                                     {"force_update", "on"}};
    ReadJob(id);
    Write(id, entries);
    const auto record = Ask("func=ambrin.data.edit&elid=" + id + "&out=xml");
    for (const auto& [key, value] : entries) EXPECT_EQ(record.value(key), value) << key;
}

// Behaviour: What is input only is never written
TEST_F(JobRecord, WhatIsInputOnlyIsNeverWritten) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"certname", "other"},
               {"domain", "other.example"},
               {"time_started", "2000-01-01 00:00:00"},
               {"user_name", "eve"},
               {"default_kid", "k"},
               {"default_pem", "p"}});
    EXPECT_EQ(Stored(id, "certname"), "shop.example");
    EXPECT_EQ(Stored(id, "domain"), "shop.example");
    EXPECT_EQ(Stored(id, "user_name"), "anna");
    EXPECT_EQ(Stored(id, "default_kid"), "");
    EXPECT_NE(Stored(id, "time_started"), "2000-01-01 00:00:00");
}

// Behaviour: Values of the wrong form are refused as "value" and change nothing
TEST_F(JobRecord, UnreadableValuesAreRefusedAndChangeNothing) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"finalize", "before"}});
    ReadJob(id);
    const std::vector<std::pair<std::string, std::string>> wrong{{"attempt_count", "many"},
                                                                 {"attempt_count", ""},
                                                                 {"attempt_count", "1x"},
                                                                 {"account_check_count", "99999999999"},
                                                                 {"verified", "yes"},
                                                                 {"failed", ""},
                                                                 {"force_update", "ON"},
                                                                 {"update_default_account", "1"},
                                                                 {"processing", "maybe"},
                                                                 {"next_attempt", "tomorrow"},
                                                                 {"next_attempt", "2031-02-30 00:00:00"}};
    for (const auto& [key, value] : wrong) {
        EXPECT_EQ(
            ErrorOf("func=ambrin.data.edit&sok=ok", WriteBack(id, {{"finalize", "after"}, {key, value}})),
            "value")
            << key << "=" << value;
    }
    EXPECT_EQ(Stored(id, "finalize"), "before");
}

// Behaviour: Characters that no answer carries are replaced and cost no write-back
// An authority may put anything into a URL; that must not cost a run its account key.
TEST_F(JobRecord, CharactersThatNoAnswerCarriesAreReplaced) {
    const std::string id = AddJob();
    ReadJob(id);
    PublishAnswer();
    Write(id,
          {{"challenges", std::string("nul\0byte", 8)}, {"kid", "bell\x07"}, {"finalize", "\xff\xc3\xbc"}});
    EXPECT_EQ(Stored(id, "challenges"),
              "nul\xef\xbf\xbd"
              "byte");
    EXPECT_EQ(Stored(id, "kid"), "bell\xef\xbf\xbd");
    EXPECT_EQ(Stored(id, "finalize"), "\xef\xbf\xbd\xc3\xbc");
}

// Behaviour: An unknown job is "missed"
TEST_F(JobRecord, AnUnknownJobIsMissed) {
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&elid=77&out=xml"), "missed");
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&sok=ok", WriteBack("77")), "missed");
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&elid=0&out=xml"), "missed");
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&elid=seven&out=xml"), "value");
}

// Behaviour: Job 0 is accepted and changes nothing
TEST_F(JobRecord, JobZeroIsAcceptedAndChangesNothing) {
    const std::string id = AddJob();
    ReadJob(id);
    Write("0", {{"kid", "nobody's"}, {"log", "2026-01-01 00:00:00,failed,x,"}});
    EXPECT_EQ(Stored(id, "kid"), "");
    EXPECT_TRUE(Ask("func=zelvek.job.show&elid=" + id).xml().GetNodes("/doc/event").empty());
}

// Behaviour: Only the process that read the record last may write it, anybody else is "stale"
TEST_F(JobRecord, OnlyTheProcessThatReadLastMayWrite) {
    const std::string id = AddJob();
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&sok=ok", WriteBack(id)), "stale") << "nobody has read it";
    ReadJob(id);
    EXPECT_EQ(InChild([&] { Write(id, {{"kid", "child's"}}); }), 99) << "the child has not read it";
    EXPECT_EQ(InChild([&] {
                  ReadJob(id);
                  Write(id, {{"kid", "child's"}});
              }),
              0);
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&sok=ok", WriteBack(id, {{"kid", "mine"}})), "stale");
    EXPECT_EQ(Stored(id, "kid"), "child's");
}

// Behaviour: An empty account key never replaces a stored one
TEST_F(JobRecord, AnEmptyKeyNeverReplacesAStoredOne) {
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"acmekey", "KEY"}, {"kid", "k"}});
    EXPECT_EQ(ErrorOf("func=ambrin.data.edit&sok=ok", WriteBack(id, {{"kid", ""}})), "stale");
    EXPECT_EQ(Stored(id, "acmekey"), "KEY");
    EXPECT_EQ(Stored(id, "kid"), "k");
    Write(id, {{"acmekey", "NEW"}});
    EXPECT_EQ(Stored(id, "acmekey"), "NEW");
}

// Behaviour: Reading starts the processing of a job, the write-back ends it
TEST_F(JobRecord, ReadingStartsProcessingAndTheWriteBackEndsIt) {
    const std::string id = AddJob();
    const auto processing = [&] { return Ask("func=zelvek.job.show&elid=" + id).value("processing"); };
    EXPECT_EQ(processing(), "off");
    ReadJob(id);
    EXPECT_EQ(processing(), "on");
    Write(id);
    EXPECT_EQ(processing(), "off");
}

// Behaviour: A newly registered account becomes the default for every job, one without a URL does not
TEST_F(JobRecord, ANewAccountBecomesTheDefaultForEveryJob) {
    const std::string first = AddJob();
    const std::string second = AddJob({{"domain", "blog.example"}});
    ReadJob(first);
    Write(first, {{"kid", "https://ca.example/1"}, {"acmekey", "KEY 1"}});
    EXPECT_EQ(Stored(second, "default_kid"), "") << "the account was not new";
    ReadJob(first);
    Write(first, {{"kid", "https://ca.example/2"}, {"acmekey", "KEY 2"}, {"update_default_account", "on"}});
    EXPECT_EQ(Stored(second, "default_kid"), "https://ca.example/2");
    EXPECT_EQ(Stored(second, "default_pem"), "KEY 2");
    ReadJob(first);
    Write(first, {{"kid", ""}, {"acmekey", "KEY 3"}, {"update_default_account", "on"}});
    EXPECT_EQ(Stored(second, "default_kid"), "https://ca.example/2") << "an account without a URL is none";
}

// Behaviour: What the panel refuses to a run is in the job's history and counts as something for people,
// until a run is
//   refused nothing
TEST_F(JobRecord, HoldsWhatThePanelRefused) {
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_EQ(
        ErrorOf("func=domain.record.edit&sok=ok&rtype=txt", {{"plid", "foreign.example"},
                                                             {"name", "_acme-challenge.foreign.example."},
                                                             {"value", "v"},
                                                             {"su", "anna"}}),
        "missed");
    Write(id);
    auto shown = Ask("func=zelvek.job.show&elid=" + id);
    EXPECT_NE(shown.value("refusal"), "");
    EXPECT_EQ(shown.value("failures"), "1");
    EXPECT_GT(shown.value("due"), vek_date::DateTime().AddSeconds(300).AsDateTime());
    const auto event = shown.xml().GetNode("/doc/event");
    EXPECT_EQ(event.Value("event"), "panel_error");
    EXPECT_TRUE(event.Value("detail").starts_with("domain.record.edit: "));
    ReadJob(id);
    Write(id);
    shown = Ask("func=zelvek.job.show&elid=" + id);
    EXPECT_EQ(shown.value("refusal"), "");
    EXPECT_EQ(shown.value("failures"), "0");
}

}  // namespace

}  // namespace zelvek::testing
