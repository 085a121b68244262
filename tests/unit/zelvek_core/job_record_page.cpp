#include "job_record_page.h"

#include "zelvek/base/job.h"

namespace zelvek::testing {

namespace {

constexpr const char* kHead = R"(# A job's record

What the panel keeps of one certificate job. `zelvek/base/job.h` has the fields in one table, `kJobFields`, and this page is
made from it; after a change there:

    cmake --build build/dev --target job_record_page && build/dev/bin/job_record_page > docs/job-record.md

- Types: a *date* is "YYYY-MM-DD HH:MM:SS" or empty, a *number* has 32 bits, a *flag* is "on" or "off".
- Written by: the *panel* when the job is added, the *run* when it writes the job back, the *service* itself.
- Shown: in the *record* that a run reads (`ambrin.data.edit`), in the *lists* that people see (`zelvek.job.list`,
  `zelvek.job.show`).
- Kept with: the *job*, or the *account*, which is kept once however many jobs use it.

[protocol.md](protocol.md) has the queries, and what they hold besides these fields.

| key | type | written by | shown in | kept with | meaning |
|---|---|---|---|---|---|
)";

std::string Type(const JobField& field) {
    if (field.date) return "date";
    if (field.IsText()) return "text";
    return field.IsNumber() ? "number" : "flag";
}

std::string Writer(const JobField& field) {
    switch (field.writer) {
        case JobField::Writer::kPanel: return "panel";
        case JobField::Writer::kRun: return "run";
        case JobField::Writer::kService: break;
    }
    return "service";
}

std::string Shown(const JobField& field) {
    switch (field.shown) {
        case JobField::kInRecord: return "record";
        case JobField::kInLists: return "lists";
        case JobField::kEverywhere: return "record, lists";
        case JobField::kNowhere: break;
    }
    return "nowhere";
}

}  // namespace

std::string JobRecordPage() {
    std::string page = kHead;
    for (const JobField& field : kJobFields) {
        page += "| `" + std::string(field.key) + "` | " + Type(field) + " | " + Writer(field) + " | " +
                Shown(field);
        page += field.kept == JobField::Kept::kWithAccount ? " | account | " : " | job | ";
        page += std::string(field.meaning) + " |\n";
    }
    return page;
}

}  // namespace zelvek::testing
