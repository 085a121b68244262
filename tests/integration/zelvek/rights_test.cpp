// Who may ask what, with the real service and processes of real users and groups.
#include <sys/stat.h>

#include <fstream>
#include <map>

#include "people.h"
#include "zelvek/base/access_list.h"
#include "zelvek/panel/functions.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

/// What a function needs, what it is asked, and what it answers to who may ask it: an error's type, or
/// nothing.
struct Expected {
    Right needs;
    std::string parameters;
    std::string answer;
};

/// Every function of the service stands here. What an administrator asks finds nothing to change in job 99.
const std::map<std::string, Expected> kTable{
    {"ambrin.data.edit", {Right::kOwn, "elid=1&out=xml", ""}},
    {"ambrin_challenge", {Right::kOwn, "action=delete&user_name=anna&file_name=none", ""}},
    {"domain", {Right::kOwn, "su=anna", ""}},
    {"domain.record.delete", {Right::kOwn, "rtype=txt&su=anna&elid=a.shop.example TXT  v", ""}},
    {"domain.record.edit",
     {Right::kOwn, "rtype=txt&su=anna&plid=a.example&name=a.example&value=v", "missed"}},
    {"problems.register", {Right::kOwn, "sok=ok&id=rights&name=rights&level=low", ""}},
    {"sslcert.csr.delete", {Right::kOwn, "elid=none", ""}},
    {"sslcert.csr.edit", {Right::kOwn, "out=xml&elid=none", "missed"}},
    {"sslcert.hardreplace", {Right::kOwn, "user=anna&elid=anna%25#%25none.example", "badkey"}},
    {"zelvek.account.show", {Right::kRead, "", ""}},
    {"zelvek.authority.default", {Right::kChange, "name=none", "missed"}},
    {"zelvek.authority.list", {Right::kRead, "", ""}},
    {"zelvek.certificate.import", {Right::kChange, "user_name=anna", "badkey"}},
    {"zelvek.certificate.list", {Right::kRead, "", ""}},
    {"zelvek.certificate.placeholder", {Right::kChange, "user_name=anna&certname=place.example", ""}},
    {"zelvek.domain.add", {Right::kChange, "name=bad name&user_name=anna", "value"}},
    {"zelvek.domain.list", {Right::kRead, "", ""}},
    {"zelvek.domain.remove", {Right::kChange, "name=none.example", "missed"}},
    {"zelvek.job.add", {Right::kChange, "domain=none.example&user_name=anna", "missed"}},
    {"zelvek.job.attention", {Right::kRead, "", ""}},
    {"zelvek.job.claim", {Right::kOwn, "elid=99", "missed"}},
    {"zelvek.job.edit", {Right::kChange, "elid=99&check_type=dns", "missed"}},
    {"zelvek.job.list", {Right::kRead, "", ""}},
    {"zelvek.job.pause", {Right::kChange, "elid=99", "missed"}},
    {"zelvek.job.remove", {Right::kChange, "elid=99", "missed"}},
    {"zelvek.job.renew", {Right::kChange, "elid=99", "missed"}},
    {"zelvek.job.resume", {Right::kChange, "elid=99", "missed"}},
    {"zelvek.job.retry", {Right::kChange, "elid=99", "missed"}},
    {"zelvek.job.show", {Right::kRead, "elid=1", ""}},
    {"zelvek.page.end", {Right::kChange, "number=99", "missed"}},
    {"zelvek.page.log", {Right::kRead, "", ""}},
    {"zelvek.page.login", {Right::kChange, "", "missed"}},
    {"zelvek.page.sessions", {Right::kRead, "", ""}},
    {"zelvek.problem.clear", {Right::kChange, "number=99", "missed"}},
    {"zelvek.problem.list", {Right::kRead, "", ""}},
    {"zelvek.problem.seen", {Right::kChange, "number=99", "missed"}},
    {"zelvek.status", {Right::kRead, "", ""}},
};

/// The type of the error in an answer; empty where there is none.
std::string TypeIn(const std::string& answer) {
    static const std::string before = "<error type=\"";
    const std::size_t at = answer.find(before);
    if (at == std::string::npos) return answer.find("<doc") == std::string::npos ? "no answer" : "";
    const std::size_t begin = at + before.size();
    return answer.substr(begin, answer.find('"', begin) - begin);
}

class Rights : public ServiceForGroups {
protected:
    /// Every function's answer to the person, as it comes over the socket.
    std::map<std::string, std::string> AnswersTo(const Person& person) {
        const fs::path folder = Path("answers-to");
        fs::remove_all(folder);
        fs::create_directory(folder);
        fs::permissions(folder, fs::perms{0777});
        EXPECT_EQ(InChild([&] {
                      Become(person);
                      for (const auto& [name, expected] : kTable)
                          std::ofstream(folder / name)
                              << Raw(Request("POST /", "func=" + name + "&" + expected.parameters));
                  }),
                  0);
        std::map<std::string, std::string> answers;
        for (const auto& [name, expected] : kTable) answers[name] = ReadFile(folder / name);
        return answers;
    }
};

// Behaviours of: Rights

// Behaviour: Which right each function needs is written down, and a new function has to be
TEST_F(Rights, OfEachFunctionAreAsWrittenDown) {
    std::map<std::string, Right> registered;
    for (const PanelFunction& function : EveryFunction()) registered[function.name] = function.needs;
    EXPECT_EQ(registered.size(), EveryFunction().size()) << "each once";
    std::map<std::string, Right> expected;
    for (const auto& [name, entry] : kTable) expected[name] = entry.needs;
    EXPECT_EQ(registered, expected);
}

// Behaviour: Each function answers those who have its right, and refuses all others with one sentence,
// whatever
//   is there; the log has a line of each refusal
TEST_F(Rights, DecideWhichFunctionAnswersWhom) {
    StartForGroups();
    Furnish();
    const std::map<Right, Person> people{{Right::kRead, kReader}, {Right::kChange, kAdmin}};
    for (const auto& [right, person] : people) {
        for (const auto& [name, answer] : AnswersTo(person)) {
            const Expected& expected = kTable.at(name);
            const bool may = right >= expected.needs;
            EXPECT_EQ(TypeIn(answer), may ? expected.answer : "denied") << name << answer;
            if (may) continue;
            const std::string who = expected.needs == Right::kChange
                                        ? " needs group games"
                                        : " is for root and the service's own user alone";
            EXPECT_NE(answer.find("<msg>" + name + who + "</msg>"), std::string::npos) << answer;
            EXPECT_NE(service().Err().find("refused user id 12345, process "), std::string::npos);
            EXPECT_NE(service().Err().find(": " + name + who + "\n"), std::string::npos) << name;
        }
    }
    for (const auto& [name, entry] : kTable) {
        const std::string answer = Raw(Request("POST /", "func=" + name + "&" + entry.parameters));
        EXPECT_EQ(TypeIn(answer), entry.answer) << "of the service's own user: " << name << answer;
    }
}

// Behaviour: Nothing that a reader or an administrator is told holds a private key, or the field of a job
// that
//   has one
TEST_F(Rights, OfOthersShowNoKey) {
    StartForGroups();
    Furnish();
    for (const Person& person : {kReader, kAdmin}) {
        for (const auto& [name, answer] : AnswersTo(person)) {
            EXPECT_EQ(answer.find("PRIVATE KEY"), std::string::npos) << name;
            EXPECT_EQ(answer.find("MC4CAQAw"), std::string::npos) << name;
            EXPECT_EQ(answer.find("acmekey"), std::string::npos) << name;
        }
    }
    const std::string own = Raw(Request("POST /", "func=ambrin.data.edit&out=xml&elid=1"));
    EXPECT_NE(own.find("MC4CAQAw"), std::string::npos) << "there is a key to be shown: " << own;
}

// Behaviour: A stranger does not get to the socket; where it is open to all the world, every function refuses
//   them with the same sentence
TEST_F(Rights, OfAStrangerAreNone) {
    StartForGroups();
    Furnish();
    for (const auto& [name, answer] : AnswersTo(kStranger)) EXPECT_EQ(answer, "") << name;
    OpenWide();
    for (const auto& [name, answer] : AnswersTo(kStranger)) {
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 403 ")) << name;
        EXPECT_EQ(TypeIn(answer), "denied") << name;
        EXPECT_NE(answer.find("<msg>this service needs group users or games, and this process, of user id "
                              "12345, has none of that</msg>"),
                  std::string::npos)
            << answer;
        EXPECT_EQ(answer.find("shop.example"), std::string::npos);
    }
    EXPECT_NE(service().Err().find("refused user id 12345, process "), std::string::npos);
}

// Behaviour: A process's main group counts as its other groups do
TEST_F(Rights, ComeFromTheMainGroupToo) {
    StartForGroups();
    EXPECT_EQ(InChild([&] {
                  Become({{}, kReadGroup});
                  const std::string answer = Raw(Request("POST /", "func=zelvek.status"));
                  if (TypeIn(answer) != "") throw std::runtime_error(answer);
              }),
              0);
}

// Behaviour: Members of hundreds of groups have the rights of each
TEST_F(Rights, ComeFromOneOfManyGroups) {
    StartForGroups();
    EXPECT_EQ(InChild([&] {
                  std::vector<gid_t> groups;
                  for (gid_t group = 200000; group < 200300; ++group) groups.push_back(group);
                  groups.push_back(IdOf(kAdminGroup));
                  if (::setgroups(groups.size(), groups.data()) != 0 || ::setgid(kPerson) != 0 ||
                      ::setuid(kPerson) != 0) {
                      throw std::runtime_error("cannot become another user");
                  }
                  const std::string answer = Raw(Request("POST /", "func=zelvek.job.retry"));
                  if (TypeIn(answer) != "") throw std::runtime_error(answer);
              }),
              0);
}

// Behaviour: Socket and directory are open to the groups by an access list alone, which goes when the options
//   name no group any more
TEST_F(Rights, OfGroupsAreAnAccessList) {
    const auto mode = [](const fs::path& path) {
        return static_cast<unsigned>(fs::status(path).permissions());
    };
    StartForGroups();
    EXPECT_EQ(mode(Socket()), 0660U);
    EXPECT_EQ(mode(Path("run")), 0710U);
    struct stat socket {};
    ASSERT_EQ(::stat(Socket().c_str(), &socket), 0);
    EXPECT_EQ(socket.st_gid, 0U);
    EXPECT_TRUE(HasAccessList(Socket()) && HasAccessList(Path("run")));
    Stop();
    Start();
    EXPECT_EQ(mode(Socket()), 0600U);
    EXPECT_EQ(mode(Path("run")), 0700U);
    EXPECT_FALSE(HasAccessList(Socket()) || HasAccessList(Path("run")));
}

// Behaviour: A group that the machine does not have is refused by name, before anything else is done
TEST_F(Rights, OfAGroupThatIsNotThereAreAnError) {
    const Ended ended = StartCommand(ServeCommand({{"--read-group", "no-such"}}))->Wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "zelvek: --read-group: there is no group \"no-such\"\n");
    EXPECT_FALSE(fs::exists(Database()));
}

// Behaviour: A reader's query is short: what is longer than 64 kibibytes is refused
TEST_F(Rights, OfAReaderAreForShortQueries) {
    StartForGroups();
    EXPECT_EQ(InChild([&] {
                  Become(kReader);
                  const std::string query = "func=zelvek.status&x=";
                  const std::size_t most = std::size_t{64} << 10;
                  const auto ask = [&](std::size_t size) {
                      return TypeIn(Raw(Request("POST /", query + std::string(size - query.size(), 'x'))));
                  };
                  if (ask(most) != "" || ask(most + 1) != "protocol") throw std::runtime_error("size");
              }),
              0);
}

}  // namespace

}  // namespace zelvek::testing
