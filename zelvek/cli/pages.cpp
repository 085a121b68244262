#include "zelvek/cli/pages.h"

#include <algorithm>
#include <limits>

#include "vek/str.h"

namespace zelvek::cli {

namespace {

constexpr int kPage = 500;

/// The entries that are still wanted.
struct Rest {
    std::optional<int> limit;
    int after;

    int Page() const { return std::min(limit.value_or(kPage), kPage); }

    /// Whether an entry belongs to it. Those up to `after` are there again where a service does not know that
    /// parameter; entries without numbers all belong.
    bool Takes(int number) {
        if (limit == 0 || (after > 0 && number <= after)) return false;
        if (limit) --*limit;
        return true;
    }
};

}  // namespace

void AddPartOptions(Command& command, Part& part, const std::string& after) {
    command.AddOption("--limit", part.limit, "At most so many").Positive();
    command.AddOption("--after", part.after, after).NonNegative();
}

void ForEachEntry(const AskPage& ask, const std::string& number, const Part& part,
                  const std::function<void(const vek_xml::Node&)>& take) {
    Rest rest{part.limit, part.after.value_or(0)};
    for (bool more = true; more;) {
        const int asked = rest.Page();
        std::map<std::string, std::string> parameters{{"limit", str::Str(asked)}};
        if (rest.after > 0) parameters["after"] = str::Str(rest.after);
        const vek_client::Result answer = ask(parameters);
        const auto entries = answer.xml().GetNodes("/doc/elem");
        for (const auto& entry : entries) {
            if (rest.Takes(str::Int(entry.Value(number)))) take(entry);
        }
        // A page with fewer entries is the last. One with more is the whole list. One that does not get
        // beyond the page before would come again for ever.
        const int last = entries.empty() ? 0 : str::Int(entries.back().Value(number));
        more = entries.size() == static_cast<std::size_t>(asked) && rest.limit != 0 && last > rest.after;
        rest.after = last;
    }
}

void ForEachPlaced(const AskPage& ask, const PlacedPart& part,
                   const std::function<void(const vek_xml::Node&)>& take) {
    int rest = part.limit.value_or(std::numeric_limits<int>::max());
    std::string after = part.after;
    for (bool more = true; more;) {
        const int asked = std::min(rest, kPage);
        std::map<std::string, std::string> parameters{{"limit", str::Str(asked)}};
        if (!after.empty()) parameters["after"] = after;
        const vek_client::Result answer = ask(parameters);
        const auto entries = answer.xml().GetNodes("/doc/elem");
        for (const auto& entry : entries) take(entry);
        rest -= asked;
        const std::string last = entries.empty() ? "" : entries.back().Value("place");
        // A page that does not get beyond the one before would come again for ever.
        more =
            entries.size() == static_cast<std::size_t>(asked) && rest > 0 && !last.empty() && last != after;
        after = last;
    }
}

}  // namespace zelvek::cli
