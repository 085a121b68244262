#include "zelvek/jobs/run_log.h"

#include "vek/str.h"

namespace zelvek {

namespace {

constexpr const char* kTimeForm = "0000-00-00 00:00:00,";

/// Whether an entry begins at `at`.
bool Begins(const std::string& log, std::size_t at) {
    const std::string form = kTimeForm;
    if (log.size() - at < form.size()) return false;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const char c = log[at + i];
        if (form[i] == '0' ? c < '0' || c > '9' : c != form[i]) return false;
    }
    return true;
}

history::Event Read(std::string entry, const std::string& now) {
    if (!Begins(entry, 0)) return {now, "", "", entry};
    history::Event event;
    event.time = str::GetWord(entry, ',');
    event.state = str::GetWord(entry, ',');
    event.event = str::GetWord(entry, ',');
    event.detail = entry;
    return event;
}

}  // namespace

std::vector<history::Event> SplitLog(const std::string& log, const std::string& now) {
    std::vector<history::Event> events;
    std::size_t begin = 0;
    for (std::size_t at = 0; at < log.size(); ++at) {
        if (log[at] != ';' || !Begins(log, at + 1)) continue;
        events.push_back(Read(log.substr(begin, at - begin), now));
        begin = at + 1;
    }
    if (begin < log.size()) events.push_back(Read(log.substr(begin), now));
    return events;
}

}  // namespace zelvek
