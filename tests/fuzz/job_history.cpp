// A run's log: whatever the details hold, the service shows the entries that the program wrote, and loses no
// text.
#include "ambrin_data.h"
#include "double/vek_double.h"
#include "support/plain.h"
#include "support/target.h"
#include "zelvek/jobs/run_log.h"

namespace {

using Events = std::vector<zelvek::history::Event>;

const std::string kNow = "2031-01-01 00:00:00";

/// Where an entry begins behind another one.
const plain::Pattern kBoundary(";[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2},");

std::vector<std::string> Pieces(const std::string& log) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = kBoundary.Find(log, begin)) != std::string::npos; begin = end + 1) {
        pieces.push_back(log.substr(begin, end - begin));
    }
    pieces.push_back(log.substr(begin));
    return pieces;
}

std::string WithoutCommas(std::string text) {
    while (text.ends_with(',')) text.pop_back();
    return text;
}

/// Any text: cut at the boundaries alone, and nothing else is changed.
void HoldAnyLog(const std::string& log) {
    const Events events = zelvek::SplitLog(log, kNow);
    const std::vector<std::string> pieces = Pieces(log);
    fuzz::Hold(events.size() == (log.empty() ? 0 : pieces.size()), "there are as many entries as beginnings");
    for (std::size_t i = 0; i < events.size(); ++i) {
        const auto& event = events[i];
        const bool foreign = event.time == kNow && event.state.empty() && event.event.empty();
        const std::string text =
            foreign ? event.detail : plain::Join({event.time, event.state, event.event, event.detail}, ",");
        if (!foreign || event.detail == pieces[i])  // else an entry of just this time that has no state
            fuzz::HoldEqual(WithoutCommas(text), WithoutCommas(pieces[i]), "an entry's text is kept");
    }
}

bool IsWord(const std::string& text) { return text.find_first_of(",;") == std::string::npos; }

/// What the program writes, as the service reads it.
void HoldWritten(const Events& entries) {
    ambrin_data.log.clear();
    for (const auto& entry : entries) ambrin_data.WriteLog(entry.state, entry.event, entry.detail);
    const Events events = zelvek::SplitLog(ambrin_data.log, kNow);
    fuzz::Hold(events.size() == entries.size(), "there are as many entries as were written");
    for (std::size_t i = 0; i < events.size(); ++i) {
        fuzz::HoldEqual(events[i].time, "2030-06-01 12:00:00", "an entry keeps its time");
        fuzz::HoldEqual(events[i].state, entries[i].state, "an entry keeps its state");
        fuzz::HoldEqual(events[i].event, entries[i].event, "an entry keeps its event");
        fuzz::HoldEqual(events[i].detail, entries[i].detail, "an entry keeps its detail");
    }
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    vek_double::World world;
    Events entries;
    std::string all;
    while (input.remaining_bytes() > 0 && entries.size() < 6) {
        const std::string event = TakeText(input);
        const std::string detail = TakeText(input);
        all += event + detail;
        if (IsWord(event) && kBoundary.Find(";" + detail) == std::string::npos)
            entries.push_back({"", "processing", event, detail});
    }
    HoldAnyLog(all);
    HoldWritten(entries);
}
