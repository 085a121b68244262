#include <gmock/gmock.h>

#include "unit/zelvek_parts/support.h"
#include "zelvek/base/authority.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using zelvek::authorities::All;
using zelvek::authorities::Authority;
using zelvek::authorities::Find;
using zelvek::authorities::IsName;
using zelvek::authorities::PluginOf;

class Authorities : public testing::Test {
protected:
    Authorities() {
        fs::create_directories(places_.descriptions);
        fs::create_directories(places_.plugin.parent_path());
    }

    /// As an installation leaves it.
    void Install(const std::string& name, const std::string& description) {
        parts::Put(places_.plugin.parent_path() / name, "program");
        fs::permissions(places_.plugin.parent_path() / name, fs::perms::owner_all);
        parts::Put(places_.descriptions / (name + ".conf"), description);
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const Authority& authority : All(places_)) names.push_back(authority.name);
        return names;
    }

    parts::TempFolder temp_;
    zelvek::authorities::Places places_{temp_.path() / "bin" / "some-plugin", temp_.path() / "share"};
};

constexpr const char* kSound = "directory=https://ca.example/dir?a=b\nstyle=rfc8555\n";

// Behaviours of: Start and store

// Behaviour: Authorities are those of the plug-ins beside the first one that are described; the first one
//   needs neither
TEST_F(Authorities, AreThoseOfThePluginsThatAreThere) {
    EXPECT_THAT(Names(), ElementsAre("ambrin"));
    EXPECT_EQ(All(places_).front().directory.substr(0, 8), "https://");
    Install("ambrin-staging", kSound);
    Install("ambrin-b", kSound);
    EXPECT_THAT(Names(), ElementsAre("ambrin", "ambrin-b", "ambrin-staging"));
    EXPECT_EQ(Find(places_, "ambrin-staging"),
              (Authority{"ambrin-staging", "https://ca.example/dir?a=b", "rfc8555"}));
    EXPECT_EQ(Find(places_, "ambrin"), All(places_).front());
    fs::remove_all(places_.descriptions);
    EXPECT_THAT(Names(), ElementsAre("ambrin"));
    EXPECT_EQ(Find(places_, "ambrin-b"), std::nullopt);
}

// Behaviour: Where a described plug-in has taken the first one's place, the first authority is that one's
TEST_F(Authorities, TheFirstIsThatOfThePluginInItsPlace) {
    Install("ambrin-own", kSound);
    places_.plugin = places_.plugin.parent_path() / "ambrin-own";
    EXPECT_EQ(Find(places_, "ambrin"), (Authority{"ambrin", "https://ca.example/dir?a=b", "rfc8555"}));
    EXPECT_THAT(Names(), ElementsAre("ambrin", "ambrin-own"));
}

// Behaviour: A description without a plug-in that can be started, of something else, or of the first one,
//   is nothing
TEST_F(Authorities, WithoutASoundDescriptionAreNone) {
    for (const char* const text :
         {"", "directory=https://ca.example/d\n", "directory=http://ca.example/d\nstyle=classic\n",
          "directory=https://ca.example/d\nstyle=new\n", "no line of it\n"}) {
        Install("ambrin-a", text);
        EXPECT_THAT(Names(), ElementsAre("ambrin")) << text;
        EXPECT_EQ(Find(places_, "ambrin-a"), std::nullopt) << text;
    }
    Install("ambrin-b", kSound);
    fs::permissions(places_.plugin.parent_path() / "ambrin-b", fs::perms::owner_read);
    Install("ambrin-c", kSound);
    fs::remove(places_.plugin.parent_path() / "ambrin-c");
    fs::create_directory(places_.plugin.parent_path() / "ambrin-c");
    Install("ambrin", kSound);
    Install("Ambrin D", kSound);
    EXPECT_THAT(Names(), ElementsAre("ambrin"));
    EXPECT_NE(Find(places_, "ambrin")->directory, "https://ca.example/dir?a=b");
}

// Behaviour: An authority's name is a file's name of small letters, digits and "-" alone, so it never
//   leads out of the plug-ins' folder
TEST_F(Authorities, HaveNamesThatLeadNowhereElse) {
    EXPECT_TRUE(IsName("ambrin-staging"));
    EXPECT_EQ(PluginOf("/opt/bin/other", "ambrin"), "/opt/bin/other");
    EXPECT_EQ(PluginOf("/opt/bin/other", "ambrin-2"), "/opt/bin/ambrin-2");
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("../bin/sh"),
          std::string("/bin/sh"), std::string("a b"), std::string("A"), std::string("a.conf"),
          std::string("a\0b", 3), std::string("\xc3\xa4"), std::string(201, 'a')}) {
        EXPECT_FALSE(IsName(name)) << name;
        EXPECT_EQ(parts::TypeOf([&] { PluginOf("/opt/bin/other", name); }), "value") << name;
        EXPECT_EQ(Find(places_, name), std::nullopt) << name;
    }
}

}  // namespace
