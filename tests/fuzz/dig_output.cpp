// Whatever `dig` prints: the data of each line, on one line, and records that are visible or missing.
#include <list>

#include "challenges/dns_check.h"
#include "double/vek_double.h"
#include "support/plain.h"
#include "support/target.h"

namespace {

const std::string kPrefix = "dig +noall +answer @8.8.8.8 @8.8.4.4 @1.1.1.1 @1.0.0.1 @9.9.9.9 ";

std::string AnswersOf(const std::string& output) {
    std::vector<std::string> answers;
    for (const std::string& line : plain::Lines(output)) {
        const std::string trimmed = plain::Trim(line);
        const std::string data = plain::Trim(trimmed.substr(trimmed.rfind('\t') + 1));
        if (!data.empty()) answers.push_back(data);
    }
    return plain::Join(answers, ", ");
}

void HoldCommand(const vek_double::Call& call, const std::string& type, const std::string& name) {
    std::vector<std::string> words = plain::ShellWords(kPrefix);
    words.push_back(type);
    words.push_back(name.substr(0, name.find('\0')));
    fuzz::Hold(plain::ShellWords(call.text) == words, "the shell takes type and name for one word each");
    fuzz::HoldEqual(call.detail, "134", "dig runs as every tool does");
}

void HoldDig(vek_double::World& world, const std::string& name, const std::string& answers) {
    const std::string result = Dig(name, "NS");
    fuzz::HoldEqual(result, answers, "the answers are the lines' last columns");
    fuzz::Hold(result.find_first_of("\n\t") == std::string::npos, "the answers stand on one line");
    HoldCommand(world.calls().at(0), "NS", name);
    world.ForgetCalls();
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    std::string output = TakeRest(input);
    const std::string name = TakeLine(output);
    const std::string content = TakeLine(output);
    vek_double::World world;
    world.AlwaysChild(kPrefix + "*", [&](const std::string&) { return vek_double::ChildAnswer{output, 9}; });
    world.SetLogLevel(0);
    const std::string answers = AnswersOf(output);
    HoldDig(world, name, answers);

    const std::list<ChallengeData> challenges{{"", "", "other.example", "", "\n"},
                                              {"", "", name, "", content}};
    std::string missing = "before";
    const bool visible = DigAllRecords(challenges, missing);
    const std::string record = name.empty() ? "_acme-challenge." : "_acme-challenge." + name + ".";
    std::string expected = "before, _acme-challenge.other.example. TXT \n";
    if (answers.find(content) == std::string::npos) expected += ", " + record + " TXT " + content;
    Hold(!visible, "a record that cannot be visible is missed");
    HoldEqual(missing, expected, "a record is missed where no answer holds its content");
    HoldCommand(world.calls().at(0), "TXT", "_acme-challenge.other.example.");
    HoldCommand(world.calls().at(2), "TXT", record);
    Hold(world.steps() == 3, "one run of dig per look-up");
}
