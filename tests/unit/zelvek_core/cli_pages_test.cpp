#include "zelvek/cli/pages.h"

#include <gmock/gmock.h>

#include <numeric>

#include "vek/str.h"

namespace zelvek::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<int> Numbers(int first, int last) {
    std::vector<int> numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// A service with a list, and what it is asked.
class Pages : public ::testing::Test {
protected:
    vek_client::Result Answer(const std::map<std::string, std::string>& parameters) {
        const std::string limit = parameters.at("limit");
        const std::string after = parameters.count("after") == 0 ? "" : parameters.at("after");
        asked_.push_back(limit + "/" + after);
        std::string text = "<doc>";
        int count = 0;
        for (const int number : list_) {
            if (knows_pages_ && (number <= str::Int(after) || count == str::Int(limit))) continue;
            ++count;
            text += numbered_ ? "<elem><id>" + str::Str(number) + "</id></elem>" : "<elem/>";
        }
        return vek_client::Result(text + "</doc>");
    }

    /// What is shown of the list.
    std::vector<int> Shown(const Part& part = {}) {
        std::vector<int> shown;
        const auto ask = [this](const auto& parameters) { return Answer(parameters); };
        ForEachEntry(ask, "id", part, [&](const vek_xml::Node& entry) {
            shown.push_back(numbered_ ? str::Int(entry.Value("id")) : 0);
        });
        return shown;
    }

    std::vector<int> list_ = Numbers(1, 1200);
    bool knows_pages_ = true;
    bool numbered_ = true;
    std::vector<std::string> asked_;  // "limit/after"
};

// Behaviours of: Command line

// Behaviour: A list is asked for page by page until a page is not full
TEST_F(Pages, AreAskedForUntilOneIsShort) {
    EXPECT_EQ(Shown(), list_);
    EXPECT_THAT(asked_, ElementsAre("500/", "500/500", "500/1000"));
}

// Behaviour: A list is asked for page by page ...
TEST_F(Pages, EndWithAnEmptyOneAfterAFullOne) {
    list_ = Numbers(1, 1000);
    EXPECT_EQ(Shown(), list_);
    EXPECT_THAT(asked_, ElementsAre("500/", "500/500", "500/1000"));
}

// Behaviour: A list is asked for page by page ...
TEST_F(Pages, OfAnEmptyListAreOne) {
    list_.clear();
    EXPECT_THAT(Shown(), IsEmpty());
    EXPECT_THAT(asked_, ElementsAre("500/"));
}

// Behaviour: A list with a limit has no more entries than that
TEST_F(Pages, HaveNoMoreThanTheLimit) {
    EXPECT_EQ(Shown({3, std::nullopt}), Numbers(1, 3));
    EXPECT_EQ(Shown({500, std::nullopt}), Numbers(1, 500));
    EXPECT_EQ(Shown({700, std::nullopt}), Numbers(1, 700));
    EXPECT_THAT(asked_, ElementsAre("3/", "500/", "500/", "200/500"));
}

// Behaviour: A list begins after the entry that is given
TEST_F(Pages, BeginAfterTheNumberGiven) {
    EXPECT_EQ(Shown({std::nullopt, 900}), Numbers(901, 1200));
    EXPECT_EQ(Shown({2, 10}), Numbers(11, 12));
    EXPECT_THAT(asked_, ElementsAre("500/900", "2/10"));
}

// Behaviour: A service that gives everything at once, or the same page again, is shown once
TEST_F(Pages, OfAServiceThatKnowsNoneAreEverything) {
    knows_pages_ = false;
    EXPECT_EQ(Shown(), list_);
    EXPECT_EQ(Shown({3, 7}), Numbers(8, 10));
    EXPECT_THAT(asked_, ElementsAre("500/", "3/7"));
}

// Behaviour: A service that gives everything at once ...
TEST_F(Pages, ThatRepeatThemselvesAreShownOnce) {
    knows_pages_ = false;
    list_ = Numbers(1, 500);
    EXPECT_EQ(Shown(), list_);
    EXPECT_THAT(asked_, ElementsAre("500/", "500/500"));
}

// Behaviour: A service that gives everything at once ...
TEST_F(Pages, WithoutNumbersAreShownOnce) {
    knows_pages_ = false;
    numbered_ = false;
    list_ = Numbers(1, 500);
    EXPECT_EQ(Shown().size(), 500U);
    EXPECT_THAT(asked_, ElementsAre("500/"));
}

/// A service with a list of so many entries with places, and what it is asked.
class PlacedPages : public ::testing::Test {
protected:
    vek_client::Result Answer(const std::map<std::string, std::string>& parameters) {
        const std::string after = parameters.count("after") == 0 ? "" : parameters.at("after");
        const int limit = str::Int(parameters.at("limit"));
        asked_.push_back(parameters.at("limit") + "/" + after);
        const int first = stuck_ || after.empty() ? 1 : str::Int(after.substr(1)) + 1;
        std::string text = "<doc>";
        for (int number = first; number <= entries_ && number < first + limit; ++number)
            text += "<elem><place>p" + str::Str(number) + "</place></elem>";
        return vek_client::Result(text + "</doc>");
    }

    std::size_t Shown(const PlacedPart& part = {}) {
        std::size_t shown = 0;
        ForEachPlaced([this](const auto& parameters) { return Answer(parameters); }, part,
                      [&](const vek_xml::Node&) { ++shown; });
        return shown;
    }

    int entries_ = 1200;
    bool stuck_ = false;
    std::vector<std::string> asked_;  // "limit/after"
};

// Behaviour: A list whose entries have places is asked for page by page, each page after the last place
// before
TEST_F(PlacedPages, AreAskedForUntilOneIsShort) {
    EXPECT_EQ(Shown(), 1200U);
    EXPECT_THAT(asked_, ElementsAre("500/", "500/p500", "500/p1000"));
}

// Behaviour: A list whose entries have places ...
TEST_F(PlacedPages, HaveNoMoreThanTheLimit) {
    EXPECT_EQ(Shown({700, "p100"}), 700U);
    EXPECT_EQ(Shown({500, ""}), 500U);
    EXPECT_THAT(asked_, ElementsAre("500/p100", "200/p600", "500/"));
    entries_ = 0;
    EXPECT_EQ(Shown(), 0U);
}

// Behaviour: A list whose entries have places ...
TEST_F(PlacedPages, ThatRepeatThemselvesEnd) {
    entries_ = 500;
    stuck_ = true;
    EXPECT_EQ(Shown(), 1000U);
    EXPECT_THAT(asked_, ElementsAre("500/", "500/p500"));
}

}  // namespace
}  // namespace zelvek::cli
