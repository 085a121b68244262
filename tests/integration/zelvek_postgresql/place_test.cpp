// Where a store is kept, and what is said of that.
#include <gmock/gmock.h>

#include "zelvek/base/error.h"
#include "zelvek/store/engines.h"
#include "zelvek/store/place.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string RefusalOf(const std::string& text) {
    try {
        CheckPlace(Place(text));
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kValue) << text;
        return error.what();
    }
    ADD_FAILURE() << text;
    return "";
}

// Behaviours of: Store

// Behaviour: What is no URL is a file; of a URL people are shown what stands before its parameters
TEST(StorePlace, IsAFileOrAUrl) {
    EXPECT_EQ(Place(std::string("/a/b.db")).Shown(), "/a/b.db");
    EXPECT_TRUE(Place(std::string("/a/postgresql://b")).IsFile());
    const Place place(
        std::string("postgres://anna@db.example:5433/panel?passfile=/etc/p&sslmode=verify-full"));
    EXPECT_FALSE(place.IsFile());
    EXPECT_EQ(place.Shown(), "postgres://anna@db.example:5433/panel");
    CheckPlace(place);
}

// Behaviour: A database's URL with a password in it is refused, and not repeated in the refusal; so is a URL
//   that no engine understands
TEST(StorePlace, HoldsNoPassword) {
    for (const std::string text :
         {"postgresql://anna:SECRET@h/d", "postgresql://:SECRET@/d", "postgresql://h/d?password=SECRET",
          "postgresql://h/d?sslmode=require&password=SECRET", "postgresql://h/d?p%61ssword=SECRET",
          "postgresql://h/d?sslpassword=SECRET"}) {
        EXPECT_THAT(RefusalOf(text), HasSubstr("holds no password")) << text;
        EXPECT_THAT(RefusalOf(text), Not(HasSubstr("SECRET"))) << text;
    }
    EXPECT_THAT(RefusalOf("mysql://h/d"), HasSubstr("not \"mysql://...\""));
    EXPECT_THAT(RefusalOf("postgresql://h/d?nonsense=1"), HasSubstr("cannot be used"));
}

}  // namespace

}  // namespace zelvek::testing
