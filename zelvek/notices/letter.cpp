#include "zelvek/notices/letter.h"

#include <json/json.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <tuple>

#include "vek/str.h"
#include "zelvek/base/text.h"

namespace zelvek::notices {

namespace {

using problems::Problem;

constexpr std::size_t kWidth =
    72;  // with room for what a mail encodes: RFC 5322 section 2.1.1 wants less than 79
constexpr std::size_t kToldInFull = 100;

/// How urgent a level is; others count as the least one.
int Urgency(const std::string& level) {
    static const std::map<std::string, int> levels{
        {"critical", 4}, {"error", 3}, {"warning", 2}, {"notice", 1}};
    const auto found = levels.find(level);
    return found == levels.end() ? 0 : found->second;
}

std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

Text TextOf(const Problem& notice, const Texts& texts) { return texts.Of(notice.name, notice.parameters); }

/// What stands under a notification's text.
Text EntryOf(const Problem& notice, const Texts& texts) {
    return texts.Of("digest_entry", {{"level", notice.level},
                                     {"user", notice.user},
                                     {"since", notice.since},
                                     {"name", notice.name},
                                     {"number", str::Str(notice.number)}});
}

std::string CountText(std::size_t count) { return str::Str(static_cast<long>(count)); }

void Add(std::string& text, const std::string& paragraph) {
    text += (text.empty() ? "" : "\n") + Wrapped(paragraph, kWidth) + "\n";
}

void AddNotices(std::string& text, const Digest& digest, const Texts& texts) {
    const std::size_t in_full = std::min(digest.notices.size(), kToldInFull);
    for (std::size_t i = 0; i < in_full; ++i) {
        const Text told = TextOf(digest.notices[i], texts);
        const Text entry = EntryOf(digest.notices[i], texts);
        if (digest.notices.size() > 1) Add(text, CountText(i + 1) + ". " + told.subject);
        Add(text, told.body);
        Add(text, entry.subject + "\n" + entry.body);
    }
    if (in_full == digest.notices.size()) return;
    std::string rest = texts.Of("digest_more", {}).body;
    for (std::size_t i = in_full; i < digest.notices.size(); ++i)
        rest += "\n" + CountText(i + 1) + ". " + TextOf(digest.notices[i], texts).subject;
    Add(text, rest);
}

Json::Value JsonOf(const Problem& notice, const Texts& texts) {
    const Text text = TextOf(notice, texts);
    Json::Value json;
    json["number"] = Json::Int64(notice.number);
    json["name"] = notice.name;
    json["level"] = notice.level;
    json["owner"] = notice.owner;
    json["user_name"] = notice.user;
    json["since"] = notice.since;
    json["time"] = notice.time;
    json["times"] = Json::Int64(notice.times);
    json["subject"] = text.subject;
    json["text"] = text.body;
    json["parameters"] = Json::objectValue;
    for (const auto& [key, value] : notice.parameters) json["parameters"][key] = ShownValue(value);
    return json;
}

}  // namespace

void Arrange(Digest& digest) {
    std::set<std::tuple<std::string, std::string, std::string>> administrators;
    for (const Problem& notice : digest.notices) {
        if (notice.owner == "root" && !notice.about.empty())
            administrators.emplace(notice.user, notice.about, notice.level);
    }
    std::set<long long> seen;
    std::erase_if(digest.notices, [&](const Problem& notice) {
        return !seen.insert(notice.number).second ||
               (notice.owner != "root" && administrators.contains({notice.user, notice.about, notice.level}));
    });
    std::stable_sort(digest.notices.begin(), digest.notices.end(), [](const Problem& a, const Problem& b) {
        return std::pair(-Urgency(a.level), a.number) < std::pair(-Urgency(b.level), b.number);
    });
}

Letter LetterOf(const Digest& digest, const Texts& texts) {
    Letter letter;
    if (digest.notices.size() == 1) {
        letter.subject = TextOf(digest.notices.front(), texts).subject;
    } else if (!digest.notices.empty()) {
        const Text frame = texts.Of("digest", {{"count", CountText(digest.notices.size())},
                                               {"first", TextOf(digest.notices.front(), texts).subject}});
        letter.subject = frame.subject;
        Add(letter.text, frame.body);
    }
    AddNotices(letter.text, digest, texts);
    if (digest.doubtful > 0)
        Add(letter.text, texts.Of("digest_doubt", {{"count", str::Str(digest.doubtful)}}).body);
    return letter;
}

std::string JsonOf(const Digest& digest, const Texts& texts, const std::string& name,
                   const std::string& address) {
    const Letter letter = LetterOf(digest, texts);
    Json::Value json;
    json["digest"] = digest.attempt;
    json["recipient"] = name;
    json["address"] = address;
    json["subject"] = letter.subject;
    json["text"] = letter.text;
    json["doubtful"] = Json::Int64(digest.doubtful);
    json["notices"] = Json::arrayValue;
    for (const Problem& notice : digest.notices) json["notices"].append(JsonOf(notice, texts));
    Json::StreamWriterBuilder form;
    form["indentation"] = "";
    return Json::writeString(form, json) + "\n";
}

std::string Wrapped(const std::string& text, std::size_t width) {
    std::string wrapped;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::size_t column = 0;
        std::istringstream words(line);
        for (std::string word; std::getline(words, word, ' ');) {
            const bool fits = column == 0 || column + 1 + Width(word) <= width;
            if (column != 0) wrapped += fits ? " " : "\n";
            column = (column == 0 ? 0 : fits ? column + 1 : 0) + Width(word);
            wrapped += word;
        }
        wrapped += "\n";
    }
    if (!wrapped.empty()) wrapped.pop_back();
    return wrapped;
}

}  // namespace zelvek::notices
