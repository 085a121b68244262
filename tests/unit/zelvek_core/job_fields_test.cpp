// The table of a job's fields: what the store, the panel and the command line rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

#include "job_record_page.h"
#include "zelvek/base/job.h"

namespace zelvek::testing {

namespace {

// Behaviours of: The job's record (ambrin.data.edit)

// Behaviour: Each field of a job has a key of its own, of small letters and "_", and a place of its own
TEST(JobFields, HaveKeysOfTheirOwn) {
    std::set<std::string> keys;
    for (const JobField& field : kJobFields) {
        const std::string key = field.key;
        EXPECT_TRUE(keys.insert(key).second) << key;
        EXPECT_FALSE(key.empty());
        EXPECT_TRUE(std::all_of(key.begin(), key.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || c == '_';
        })) << key;
        const auto same = [&](const JobField& other) { return other.member == field.member; };
        EXPECT_EQ(std::count_if(kJobFields.begin(), kJobFields.end(), same), 1) << key;
    }
}

// Behaviour: What is kept with an account are its three texts
TEST(JobFields, OfAnAccountAreItsThreeTexts) {
    std::vector<std::string> keys;
    for (const JobField& field : kJobFields) {
        if (field.kept != JobField::Kept::kWithAccount) continue;
        keys.emplace_back(field.key);
        EXPECT_TRUE(field.IsText()) << field.key;
        EXPECT_EQ(field.writer, JobField::Writer::kRun) << field.key;
    }
    EXPECT_THAT(keys, ::testing::UnorderedElementsAre("kid", "acmekey", "modulus"));
}

// Behaviour: No list shows an account's private key
TEST(JobFields, ThatListsShowHoldNoKey) {
    const auto* const key = std::find_if(kJobFields.begin(), kJobFields.end(), [](const JobField& field) {
        return field.key == std::string("acmekey");
    });
    ASSERT_NE(key, kJobFields.end());
    EXPECT_EQ(key->shown, JobField::kInRecord);
    EXPECT_EQ(key->member, JobField::Member(&Job::acmekey));
}

// Behaviour: Dates of jobs are texts
TEST(JobFields, OfDatesAreTexts) {
    for (const JobField& field : kJobFields) EXPECT_TRUE(!field.date || field.IsText()) << field.key;
}

// Behaviour: docs/job-record.md says of each field of a job what the table of fields says
TEST(JobFields, AreDescribedByTheirPage) {
    std::ifstream in(DOCS "/job-record.md", std::ios::binary);
    const std::string page{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(page, JobRecordPage()) << "build/dev/bin/job_record_page > docs/job-record.md";
    for (const JobField& field : kJobFields) {
        EXPECT_THAT(page, ::testing::HasSubstr("| `" + std::string(field.key) + "` | "));
        EXPECT_THAT(page, ::testing::HasSubstr(std::string(" | ") + field.meaning + " |\n"));
        EXPECT_EQ(std::string(field.meaning).find_first_of("|\n"), std::string::npos) << field.key;
    }
}

}  // namespace

}  // namespace zelvek::testing
