#include "zelvek/base/happening.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// The library's own, which takes no source line of this file into each entry.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <cstdlib>

#include "zelvek/base/log.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

/// The word in the field EVENT, and the MESSAGE_ID, which never changes.
struct Kind {
    const char* event;
    const char* id;
};

Kind KindOf(Happening happening) {
    switch (happening) {
        case Happening::kBegan: return {"service_began", "42ed56f3a1e049828eb8841a3976af6e"};
        case Happening::kEnds: return {"service_ends", "8380776e034e488fbdd8e6bf37344603"};
        case Happening::kRunBegan: return {"run_began", "a099ff84004a4017b3f25ee936bf2a55"};
        case Happening::kRunEnded: return {"run_ended", "432459e3cf9b44bea059d7190a848f2c"};
        case Happening::kInstalled: return {"certificate_installed", "0a0ead47c3d14e2b953353c0725f6c26"};
        case Happening::kNoticeRaised: return {"notice_raised", "f1efb98b979d4f27889a864a83717584"};
        case Happening::kRefused: return {"query_refused", "a953983a03f94d41afbe52d9b2505a3c"};
        case Happening::kReloadFailed: break;
    }
    return {"reload_failed", "a5ac18c20e0c49da9d36a9dac51d506b"};
}

bool IsTrouble(Happening happening) {
    return happening == Happening::kReloadFailed || happening == Happening::kNoticeRaised ||
           happening == Happening::kRefused;
}

/// Whether what is written to standard error goes to the journal, sd_journal_print(3): the file that the
/// service manager has named is still that one.
bool GoesToJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat errors {};
    return stream != nullptr && ::fstat(STDERR_FILENO, &errors) == 0 &&
           stream == std::to_string(errors.st_dev) + ":" + std::to_string(errors.st_ino);
}

bool SendToJournal(const std::vector<std::string>& entry) {
    std::vector<iovec> fields;
    fields.reserve(entry.size());
    // The library does not change them; its structure just lacks the const.
    for (const std::string& field : entry) fields.push_back({const_cast<char*>(field.data()), field.size()});
    return ::sd_journal_sendv(fields.data(), static_cast<int>(fields.size())) == 0;
}

void Add(std::vector<std::string>& entry, const char* name, const std::string& value) {
    if (!value.empty()) entry.push_back(std::string(name) + "=" + WithoutControls(value, ' '));
}

}  // namespace

std::vector<std::string> JournalEntry(Happening happening, const Circumstances& circumstances,
                                      const std::string& text) {
    const Kind kind = KindOf(happening);
    std::vector<std::string> entry;
    Add(entry, "MESSAGE", text);
    Add(entry, "MESSAGE_ID", kind.id);
    Add(entry, "EVENT", kind.event);
    Add(entry, "PRIORITY", IsTrouble(happening) ? "4" : "6");  // warning, information
    Add(entry, "SYSLOG_IDENTIFIER", "zelvek");
    if (circumstances.job > 0) Add(entry, "JOB_ID", std::to_string(circumstances.job));
    Add(entry, "CERTNAME", circumstances.certname);
    Add(entry, "CERTUSER", circumstances.user);
    Add(entry, "OUTCOME", circumstances.outcome);
    return entry;
}

void Log(Happening happening, const Circumstances& circumstances, const std::string& text) {
    if (!GoesToJournal() || !SendToJournal(JournalEntry(happening, circumstances, text))) Log(text);
}

void LogToJournal(Happening happening, const Circumstances& circumstances, const std::string& text) {
    if (GoesToJournal()) SendToJournal(JournalEntry(happening, circumstances, text));
}

}  // namespace zelvek
