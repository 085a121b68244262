#include "challenges/dns_check.h"

#include "ambrin_log.h"
#include "challenges/publication.h"
#include "encoding/tool.h"
#include "vek/proc.h"
#include "vek/str.h"

namespace {

/// Two resolvers of one public operator, two of a second, one of a third; `dig` asks them in this order until
/// one answers.
const std::string kDigCommand = "dig +noall +answer @8.8.8.8 @8.8.4.4 @1.1.1.1 @1.0.0.1 @9.9.9.9 ";

}  // namespace

std::string Dig(const std::string& name, const std::string& type) {
    vek_proc::Execute dig(kDigCommand + vek_proc::Escape(type) + " " + vek_proc::Escape(name), kToolMode);
    std::string output = dig.Str();
    std::string answers;
    while (!output.empty()) {
        std::string line = str::Trim(str::GetWord(output, '\n'));
        str::inpl::Append(answers, str::Trim(str::RGetWord(line, '\t')), ", ");
    }
    Trace("Dig result '%s'", answers);
    return answers;
}

bool DigAllRecords(const std::list<ChallengeData>& challenges, std::string& missing) {
    bool all_visible = true;
    for (const ChallengeData& challenge : challenges) {
        const std::string name = TxtRecordName(challenge);
        if (Dig(name, "TXT").find(challenge.content) != std::string::npos) continue;
        Trace("cant find valid record with data '%s'", challenge.content);
        str::inpl::Append(missing, name + " TXT " + challenge.content, ", ");
        all_visible = false;
    }
    return all_visible;
}
