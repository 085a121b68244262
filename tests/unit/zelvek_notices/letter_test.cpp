// What one recipient is told at once.
#include "zelvek/notices/letter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace zelvek::notices {

namespace {

using problems::Problem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

Problem Failure(long long number, const std::string& name, const std::string& owner = "root",
                const std::string& level = "error") {
    Problem problem{.name = owner == "root" ? "ambrin_failed_admin" : "ambrin_failed_user",
                    .level = level,
                    .owner = owner,
                    .time = "2026-03-02 00:00:00",
                    .parameters = {{"name", name}, {"error", "the authority says no"}},
                    .user = "anna",
                    .about = name};
    problem.number = number;
    problem.since = "2026-03-01 00:00:00";
    problem.times = 3;
    return problem;
}

std::vector<long long> Numbers(const Digest& digest) {
    std::vector<long long> numbers;
    for (const Problem& notice : digest.notices) numbers.push_back(notice.number);
    return numbers;
}

std::size_t LongestLine(const std::string& text) {
    std::size_t longest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
    return longest;
}

// Behaviours of: Notices

// Behaviour: A letter about one notification has its subject and text; below stand its level, user, time and
//   number
TEST(Letter, OfOneNotificationIsItsText) {
    const Letter letter = LetterOf({"1", {Failure(7, "shop.example")}}, Texts());
    EXPECT_EQ(letter.subject, "The certificate shop.example could not be issued");
    EXPECT_THAT(letter.text, HasSubstr("The job for the certificate shop.example was stopped"));
    EXPECT_THAT(letter.text, HasSubstr("\n\nReason: the authority says no\n\n"
                                       "Level error, user anna, since 2026-03-01 00:00:00 (UTC), told by\n"
                                       "ambrin_failed_admin\nNumber 7 of \"zelvek problem list\".\n"));
    EXPECT_LE(LongestLine(letter.text), 72u);
}

// Behaviour: A letter about several notifications counts and numbers them, the most urgent ones first, each
// once
TEST(Letter, OfSeveralBeginsWithTheMostUrgent) {
    Digest digest{
        "1",
        {Failure(1, "a.example"), Failure(2, "b.example", "root", "message"),
         Failure(3, "c.example", "root", "critical"), Failure(1, "a.example"), Failure(4, "d.example")}};
    Arrange(digest);
    EXPECT_THAT(Numbers(digest), ElementsAre(3, 1, 4, 2));
    const Letter letter = LetterOf(digest, Texts());
    EXPECT_EQ(letter.subject, "4 notices, first: The certificate c.example could not be issued");
    EXPECT_THAT(letter.text, HasSubstr("1. The certificate c.example could not be issued\n"));
    EXPECT_THAT(letter.text, HasSubstr("4. The certificate b.example could not be issued\n"));
}

// Behaviour: What the administrator is told of a certificate is not told once more in the words for its user,
//   where the same letter has both
TEST(Letter, TellsTheAdministratorOnce) {
    Digest digest{"1",
                  {Failure(1, "a.example", "anna"), Failure(2, "a.example"), Failure(3, "b.example", "anna"),
                   Failure(4, "a.example", "anna", "critical")}};
    Arrange(digest);
    EXPECT_THAT(Numbers(digest), ElementsAre(4, 2, 3));
}

// Behaviour: Of very many notifications a hundred are told with their texts and the others by their subjects
TEST(Letter, OfVeryManyStaysReadable) {
    Digest digest{"1", {}};
    for (int i = 1; i <= 150; ++i)
        digest.notices.push_back(Failure(i, "site" + std::to_string(i) + ".example"));
    const Letter letter = LetterOf(digest, Texts());
    EXPECT_EQ(letter.subject, "150 notices, first: The certificate site1.example could not be issued");
    EXPECT_THAT(letter.text, HasSubstr("Number 100 of"));
    EXPECT_THAT(letter.text, Not(HasSubstr("Number 101 of")));
    EXPECT_THAT(letter.text, HasSubstr("\n101. The certificate site101.example could not be issued\n"));
    EXPECT_THAT(letter.text, HasSubstr("\n150. The certificate site150.example could not be issued\n"));
}

// Behaviour: A letter says how many earlier notifications may not have been delivered
TEST(Letter, TellsOfDoubtfulOnes) {
    EXPECT_THAT(LetterOf({"1", {Failure(1, "a")}, 17}, Texts()).text, HasSubstr("17 earlier notices"));
    EXPECT_THAT(LetterOf({"1", {Failure(1, "a")}, 0}, Texts()).text, Not(HasSubstr("earlier notices")));
}

// Behaviour: Text is wrapped between words, by characters, not by bytes; a long word stands alone
TEST(Letter, IsWrapped) {
    EXPECT_EQ(Wrapped("aa bb cc", 5), "aa bb\ncc");
    EXPECT_EQ(Wrapped("aa bbbbbbbb cc\ndd", 5), "aa\nbbbbbbbb\ncc\ndd");
    EXPECT_EQ(Wrapped("\u00fc\u00fc \u00fc\u00fc \u00fc", 5), "\u00fc\u00fc \u00fc\u00fc\n\u00fc");
    EXPECT_EQ(Wrapped("a\n\nb", 5), "a\n\nb");
    EXPECT_EQ(Wrapped("", 5), "");
}

// Behaviour: For a program a digest is one line of JSON with recipient, letter and notifications
TEST(Letter, IsJsonForPrograms) {
    const std::string text =
        JsonOf({"a1", {Failure(7, "shop\n.example")}, 2}, Texts(), "anna", "a@b.example");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    Json::Value json;
    std::istringstream(text) >> json;
    EXPECT_EQ(json["digest"].asString(), "a1");
    EXPECT_EQ(json["recipient"].asString(), "anna");
    EXPECT_EQ(json["address"].asString(), "a@b.example");
    EXPECT_EQ(json["doubtful"].asInt(), 2);
    EXPECT_THAT(json["subject"].asString(), HasSubstr("shop .example"));
    EXPECT_THAT(json["text"].asString(), HasSubstr("Reason: the authority says no"));
    const Json::Value& notice = json["notices"][0];
    EXPECT_EQ(notice["number"].asInt(), 7);
    EXPECT_EQ(notice["name"].asString(), "ambrin_failed_admin");
    EXPECT_EQ(notice["level"].asString(), "error");
    EXPECT_EQ(notice["owner"].asString(), "root");
    EXPECT_EQ(notice["user_name"].asString(), "anna");
    EXPECT_EQ(notice["since"].asString(), "2026-03-01 00:00:00");
    EXPECT_EQ(notice["time"].asString(), "2026-03-02 00:00:00");
    EXPECT_EQ(notice["times"].asInt(), 3);
    EXPECT_EQ(notice["parameters"]["error"].asString(), "the authority says no");
}

}  // namespace

}  // namespace zelvek::notices
