// Which domain belongs to which user.
#include "zelvek/store/domains.h"

#include "engine.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::IsEmpty;

class StoredDomains : public StoreTest {
protected:
    void Add(const std::string& name, const std::string& ascii, const std::string& user) {
        Do([&](Transaction& transaction) { domains::Add(transaction, {0, name, ascii, user}); });
    }

    std::vector<domains::Domain> Of(const std::string& user) {
        Transaction transaction(store());
        return domains::Of(transaction, user);
    }

    std::vector<domains::Domain> List(int after, int limit) {
        Transaction transaction(store());
        return domains::List(transaction, after, limit);
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredDomains, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A user's domains come in the order in which they were added, after a restart too; other users'
//   do not
TEST_P(StoredDomains, OfAUserComeInTheirOrder) {
    Add("shop.example", "shop.example", "anna");
    Add("blog.example", "blog.example", "bert");
    Add("b\u00fccher.example", "xn--bcher-kva.example", "anna");
    Reopen();
    EXPECT_THAT(Of("anna"),
                ElementsAre(FieldsAre(_, "shop.example", "shop.example", "anna"),
                            FieldsAre(_, "b\u00fccher.example", "xn--bcher-kva.example", "anna")));
    EXPECT_LT(Of("anna")[0].id, Of("anna")[1].id);
    EXPECT_THAT(Of("Anna"), IsEmpty());
}

// Behaviour: All domains are listed by number, after the number asked for, as many as asked for
TEST_P(StoredDomains, AreListedInPages) {
    for (const std::string name : {"a", "b", "c", "d"}) Add(name, name, name == "b" ? "bert" : "anna");
    const auto all = List(0, 100);
    EXPECT_THAT(all, ElementsAre(FieldsAre(_, "a", "a", "anna"), FieldsAre(_, "b", "b", "bert"),
                                 FieldsAre(_, "c", "c", "anna"), FieldsAre(_, "d", "d", "anna")));
    EXPECT_THAT(List(all[0].id, 2),
                ElementsAre(FieldsAre(all[1].id, "b", "b", "bert"), FieldsAre(_, "c", "c", _)));
    EXPECT_THAT(List(all[3].id, 2), IsEmpty());
}

// Behaviour: A domain that is there already, in whatever spelling and whosever, is refused by its name and
//   stays as it was
TEST_P(StoredDomains, OfOthersAreRefused) {
    Add("b\u00fccher.example", "xn--bcher-kva.example", "anna");
    for (const std::string user : {"anna", "bert"}) {
        try {
            Add("B\u00dcCHER.example", "xn--bcher-kva.example", user);
            ADD_FAILURE() << "added";
        } catch (const Error& error) {
            EXPECT_EQ(error.code(), Code::kExists);
            EXPECT_EQ(error.value(), "B\u00dcCHER.example");
        }
    }
    EXPECT_THAT(List(0, 10),
                ElementsAre(FieldsAre(_, "b\u00fccher.example", "xn--bcher-kva.example", "anna")));
}

// Behaviour: The domain that holds a name is the longest one that is the name or lies above it by whole
//   labels, whoever has it
TEST_P(StoredDomains, TheLongestOneHoldsAName) {
    Add("Shop.example", "shop.example", "anna");
    Add("sub.shop.example", "sub.shop.example", "bert");
    const auto holding = [&](const std::string& name) {
        return Do([&](Transaction& transaction) {
            const auto found = domains::Holding(transaction, name);
            return found ? found->name + " " + found->user_name : "";
        });
    };
    for (const std::string name : {"shop.example", "www.shop.example", "a.b.c.shop.example"}) {
        EXPECT_EQ(holding(name), "Shop.example anna") << name;
    }
    for (const std::string name : {"sub.shop.example", "a.sub.shop.example"}) {
        EXPECT_EQ(holding(name), "sub.shop.example bert") << name;
    }
    for (const std::string name : {"", "example", "workshop.example", "shop.example.org"}) {
        EXPECT_EQ(holding(name), "") << name;
    }
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredDomains, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        Add(text, text, text);
        EXPECT_THAT(Of(text), ElementsAre(FieldsAre(_, text, text, text)));
        EXPECT_THAT(List(Of(text)[0].id - 1, 10), ElementsAre(FieldsAre(_, text, text, text)));
    }
}

// Behaviour: A domain one label below another is found where it is somebody else's
TEST_P(StoredDomains, OfOthersBelowAreFound) {
    Add("shop.example", "shop.example", "anna");
    Add("own.shop.example", "own.shop.example", "anna");
    Add("deep.x.shop.example", "deep.x.shop.example", "bert");
    const auto below = [&](const std::string& parent, const std::string& user) {
        const auto found =
            Do([&](Transaction& transaction) { return domains::OfAnotherBelow(transaction, parent, user); });
        return found ? found->name : "";
    };
    EXPECT_EQ(below("shop.example", "anna"), "");
    Add("bert.shop.example", "bert.shop.example", "bert");
    EXPECT_EQ(below("shop.example", "anna"), "bert.shop.example");
    EXPECT_EQ(below("shop.example", "bert"), "own.shop.example");
    EXPECT_EQ(below("x.shop.example", "anna"), "deep.x.shop.example");
}

}  // namespace

}  // namespace zelvek::testing
