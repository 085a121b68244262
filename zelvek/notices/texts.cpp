#include "zelvek/notices/texts.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <istream>
#include <optional>
#include <sstream>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/text.h"
#include "zelvek/notices/built_in.h"

namespace zelvek::notices {

namespace {

constexpr std::size_t kMostOfValue = 2000;  // bytes
const std::string kSubject = "Subject: ";
const std::string kNone = "(none)";

struct Place {
    std::string file;
    int line;
};

Error Wrong(const Place& place, const std::string& reason) {
    return Error(Code::kValue, place.file + ":" + std::to_string(place.line) + ": " + reason);
}

bool IsNamePart(char c) { return (c >= 'a' && c <= 'z') || c == '_'; }

/// The name in braces that begins at `at`; nothing where none does.
std::optional<std::string> PlaceholderAt(const std::string& text, std::size_t at) {
    if (text[at] != '{') return std::nullopt;
    std::size_t end = at + 1;
    while (end < text.size() && IsNamePart(text[end])) ++end;
    if (end == at + 1 || end == text.size() || text[end] != '}') return std::nullopt;
    return text.substr(at + 1, end - at - 1);
}

void AddPlaceholders(const std::string& text, std::set<std::string>& names) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (const auto name = PlaceholderAt(text, at)) names.insert(*name);
    }
}

/// One pass, so that a value that looks like a placeholder stays itself.
std::string Filled(const std::string& text, const std::function<std::string(const std::string&)>& value) {
    std::string filled;
    for (std::size_t at = 0; at < text.size();) {
        const auto name = PlaceholderAt(text, at);
        filled += name ? value(*name) : std::string(1, text[at]);
        at += name ? name->size() + 2 : 1;
    }
    return filled;
}

std::string CutTo(const std::string& text, std::size_t most) {
    if (text.size() <= most) return text;
    std::size_t end = 0;
    while (const auto character = CharacterAt(text, end)) {
        if (end + character->length > most) break;
        end += character->length;
    }
    return text.substr(0, end) + " ...";
}

/// The entries of one file, line by line.
class Reader {
public:
    Reader(std::string file, std::istream& input) : place_{std::move(file), 0}, input_(input) {}

    std::map<std::string, std::pair<Text, Place>> Read() {
        for (std::string line; std::getline(input_, line);) {
            ++place_.line;
            if (line.ends_with('\r')) line.pop_back();
            if (!line.starts_with('#')) Take(line);
        }
        Finish();
        return std::move(texts_);
    }

private:
    void Take(const std::string& line) {
        if (!IsPlain(line)) throw Wrong(place_, "\"" + Printable(line) + "\" is no line of text in UTF-8");
        if (line.starts_with('[')) {
            Begin(line);
        } else if (name_.empty()) {
            if (!line.empty()) throw Wrong(place_, "text stands before the first [name]");
        } else if (text_.subject.empty()) {
            TakeSubject(line);
        } else {
            TakeBody(line);
        }
    }

    void Begin(const std::string& line) {
        Finish();
        const std::string name = line.substr(1, line.size() - 2);
        if (!line.ends_with(']') || name.empty() || !std::all_of(name.begin(), name.end(), IsNamePart))
            throw Wrong(place_,
                        "\"" + Printable(line) + "\" is no name in brackets, of small letters and \"_\"");
        if (texts_.contains(name)) throw Wrong(place_, "there is an entry [" + name + "] already");
        name_ = name;
        text_ = {};
        paragraph_ = true;
        begin_ = place_;
    }

    void TakeSubject(const std::string& line) {
        if (!line.starts_with(kSubject) || line.size() == kSubject.size())
            throw Wrong(place_, "[" + name_ + "] has to begin with a line \"" + kSubject + "...\"");
        text_.subject = line.substr(kSubject.size());
    }

    void TakeBody(const std::string& line) {
        if (line.empty()) {
            paragraph_ = true;
            return;
        }
        if (!text_.body.empty()) text_.body += paragraph_ ? "\n\n" : " ";
        text_.body += line;
        paragraph_ = false;
    }

    void Finish() {
        if (name_.empty()) return;
        if (text_.body.empty()) throw Wrong(begin_, "[" + name_ + "] has no subject or no text");
        texts_[name_] = {text_, begin_};
    }

    Place place_;
    std::istream& input_;
    std::map<std::string, std::pair<Text, Place>> texts_;
    std::string name_;
    Text text_;
    Place begin_;
    bool paragraph_ = true;
};

void CheckPlaceholders(const std::string& name, const Text& text, const Text& built_in, const Place& place) {
    const std::set<std::string> known = PlaceholdersOf(built_in);
    std::string reason = "[" + name + "] has no parameter {";
    for (const std::string& placeholder : PlaceholdersOf(text)) {
        if (known.contains(placeholder)) continue;
        throw Wrong(place, reason.append(placeholder).append("}"));
    }
}

}  // namespace

Texts::Texts() {
    std::istringstream input(kBuiltInTexts);
    for (const auto& [name, entry] : Reader("built-in texts", input).Read()) texts_[name] = entry.first;
}

Texts::Texts(const std::filesystem::path& file) : Texts() {
    std::ifstream input(file);
    const auto entries = Reader(file.string(), input).Read();
    // A folder opens, and then cannot be read.
    if (!input.eof()) throw IoError("cannot read", file, errno);
    for (const auto& [name, entry] : entries) {
        const auto& [text, place] = entry;
        if (!texts_.contains(name)) {
            Log(place.file + ":" + std::to_string(place.line) + ": nothing is told by the name " + name);
            continue;
        }
        CheckPlaceholders(name, text, texts_[name], place);
        texts_[name] = text;
    }
}

std::set<std::string> PlaceholdersOf(const Text& text) {
    std::set<std::string> names;
    AddPlaceholders(text.subject, names);
    AddPlaceholders(text.body, names);
    return names;
}

std::string ShownValue(const std::string& value) {
    if (value.find("PRIVATE KEY") != std::string::npos) return "(left out: it holds a private key)";
    std::string shown;
    for (const std::string& line : str::Split(CutTo(value, kMostOfValue), "\n")) {
        str::inpl::Append(shown, WithoutControls(line, ' '), "\n");
    }
    return shown.find_first_not_of(" \n") == std::string::npos ? kNone : shown;
}

Text Texts::Of(const std::string& name, const Parameters& parameters) const {
    const auto found = texts_.find(name);
    if (found == texts_.end()) {
        Text text{ShownValue(name), ""};
        for (const auto& [key, value] : parameters)
            text.body += (text.body.empty() ? "" : "\n") + ShownValue(key) + ": " + ShownValue(value);
        return {str::Replace(text.subject, "\n", " "), text.body.empty() ? kNone : text.body};
    }
    const auto value = [&](const std::string& key) {
        const auto entry = std::find_if(parameters.begin(), parameters.end(),
                                        [&](const auto& one) { return one.first == key; });
        return entry == parameters.end() ? kNone : ShownValue(entry->second);
    };
    const std::string subject = Filled(found->second.subject, value);
    return {str::Replace(subject, "\n", " "), Filled(found->second.body, value)};
}

}  // namespace zelvek::notices
