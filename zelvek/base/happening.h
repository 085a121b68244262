#pragma once

#include <string>
#include <vector>

/// What people watch the service's log for. Where standard error is systemd's journal, these messages have
/// fields by which they are found: docs/watching.md has them.
namespace zelvek {

enum class Happening {
    kBegan,
    kEnds,
    kRunBegan,
    kRunEnded,
    kInstalled,
    kNoticeRaised,
    kRefused,
    kReloadFailed
};

/// What it is about, as far as that is known. Nothing secret.
struct Circumstances {
    int job = 0;
    std::string certname = {};
    std::string user = {};
    std::string outcome = {};  // the job's state after a run, a reload's failure, a notification's name
};

/// As `Log`, with fields in the journal.
void Log(Happening happening, const Circumstances& circumstances, const std::string& text);

/// To the journal alone: nothing where standard error is something else.
void LogToJournal(Happening happening, const Circumstances& circumstances, const std::string& text);

/// The journal's entry, "FIELD=value" each, the message among them.
std::vector<std::string> JournalEntry(Happening happening, const Circumstances& circumstances,
                                      const std::string& text);

}  // namespace zelvek
