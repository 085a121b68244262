#include "zelvek/cli/completion.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <set>

#include "zelvek/base/error.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/cli/ask.h"

namespace zelvek::cli {

namespace {

constexpr const char* kMostNames = "200";  // more are no help to a person

/// Which of the service's names an option or argument takes.
struct NameKind {
    const char* command;  // the first word of the commands
    const char* name;     // of the option or argument
    const char* kind;
};
constexpr std::array kNameKinds{NameKind{"job", "ID", "job"},
                                NameKind{"job", "--after", "job"},
                                NameKind{"problem", "NUMBER", "problem"},
                                NameKind{"domain", "NAME", "domain"},
                                NameKind{"job", "NAME", "domain"},
                                NameKind{"job", "--name", "domain"},
                                NameKind{"job", "--alias", "domain"},
                                NameKind{"job", "--user", "user"},
                                NameKind{"domain", "--user", "user"},
                                NameKind{"certificate", "--user", "user"},
                                NameKind{"certificate", "--after", "job"},
                                NameKind{"import", "--user", "user"},
                                NameKind{"setup", "--user", "user"},
                                NameKind{"setup", "--domain", "domain"},
                                NameKind{"import", "--authority", "authority"},
                                NameKind{"setup", "--authority", "authority"},
                                NameKind{"job", "--authority", "authority"},
                                NameKind{"account", "--authority", "authority"},
                                NameKind{"authority", "NAME", "authority"}};

/// A way along the words, to the command that they name.
class WordWalk {
public:
    explicit WordWalk(const CommandText& line) : at_(&line) {}

    void Take(const std::string& word) {
        if (awaiting_ != nullptr) {
            awaiting_ = nullptr;
        } else if (word.starts_with("-")) {
            awaiting_ = OptionWithValue(word);
        } else if (const CommandText* command = Named(word)) {
            if (noun_.empty()) noun_ = word;
            at_ = command;
        } else {
            ++arguments_;
        }
    }

    /// The option or argument whose value comes next; null where none does.
    const OptionText* Next() const {
        if (awaiting_ != nullptr) return awaiting_;
        return arguments_ < at_->arguments.size() ? &at_->arguments[arguments_] : nullptr;
    }

    bool AtOption() const { return awaiting_ != nullptr; }
    const CommandText& at() const { return *at_; }
    const std::string& noun() const { return noun_; }

private:
    const OptionText* OptionWithValue(const std::string& word) const {
        for (const OptionText& option : at_->options) {
            if (option.name == word && !option.value.empty()) return &option;
        }
        return nullptr;
    }

    const CommandText* Named(const std::string& word) const {
        for (const CommandText& command : at_->commands) {
            if (command.name == word) return &command;
        }
        return nullptr;
    }

    const CommandText* at_;
    const OptionText* awaiting_ = nullptr;
    std::size_t arguments_ = 0;
    std::string noun_;
};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::vector<Candidate> ValuesOf(const OptionText& taken, const std::string& noun, const AskForNames& names) {
    std::vector<Candidate> values;
    for (const std::string& choice : taken.choices) values.push_back({choice});
    for (const NameKind& kind : kNameKinds) {
        if (noun == kind.command && taken.name == kind.name) return names(kind.kind);
    }
    return values;
}

std::vector<Candidate> CandidatesAt(const WordWalk& walk, bool options, const AskForNames& names) {
    std::vector<Candidate> all;
    if (walk.AtOption() || (walk.Next() != nullptr && !options))
        return ValuesOf(*walk.Next(), walk.noun(), names);
    if (options || walk.at().commands.empty()) {
        for (const OptionText& option : walk.at().options)
            all.push_back({option.name, FirstLine(option.description)});
    } else {
        for (const CommandText& command : walk.at().commands)
            all.push_back({command.name, command.description});
    }
    return all;
}

struct NameList {
    const char* function;
    const char* key;      // of an entry's word
    const char* meaning;  // of an entry's meaning
};

NameList NameListOf(const std::string& kind) {
    if (kind == "job") return {"zelvek.job.list", "id", "certname"};
    if (kind == "problem") return {"zelvek.problem.list", "number", "name"};
    if (kind == "authority") return {"zelvek.authority.list", "name", "directory"};
    if (kind == "user") return {"zelvek.domain.list", "user_name", ""};
    return {"zelvek.domain.list", "name", "user_name"};
}

}  // namespace

std::vector<Candidate> Complete(const CommandText& line, const std::vector<std::string>& words,
                                const AskForNames& names) {
    WordWalk walk(line);
    for (std::size_t i = 0; i + 1 < words.size(); ++i) walk.Take(words[i]);
    const std::string begun = words.empty() ? "" : words.back();
    std::vector<Candidate> all = CandidatesAt(walk, begun.starts_with("-") && !walk.AtOption(), names);
    std::erase_if(all, [&](const Candidate& each) { return !each.word.starts_with(begun); });
    return all;
}

std::vector<Candidate> NamesOfService(const std::string& kind) try {
    // A service that is not there would be waited for.
    if (!std::filesystem::exists(RunDirectory() / "zelvek.sock")) return {};
    const NameList list = NameListOf(kind);
    std::vector<Candidate> found;
    std::set<std::string> words;
    const auto answer = Ask(list.function, {{"limit", kMostNames}});
    for (const auto& entry : answer.xml().GetNodes("/doc/elem")) {
        const std::string word = entry.Value(list.key);
        if (words.insert(word).second)
            found.push_back({word, *list.meaning == '\0' ? "" : entry.Value(list.meaning)});
    }
    return found;
} catch (const std::exception&) {
    return {};  // a shell shows nothing then
}

}  // namespace zelvek::cli
