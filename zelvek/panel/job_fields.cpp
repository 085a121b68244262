#include "zelvek/panel/job_fields.h"

#include <optional>

#include "vek/date.h"
#include "vek/err.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/store/history.h"

namespace zelvek {

namespace {

void CheckDate(const std::string& key, const std::string& text) {
    try {
        if (!text.empty()) vek_date::DateTime{text};
    } catch (const vek_err::Error&) {
        throw Error(Code::kValue, key, text, "\"" + text + "\" is no date and time for \"" + key + "\"");
    }
}

/// What XML cannot carry is replaced: an authority may put anything into a URL, and refusing it here would
/// cost the whole write-back.
void Set(std::string& value, const Query& query, const JobField& field) {
    const std::string& text = query.parameters.Get(field.key);
    if (field.date) CheckDate(field.key, text);
    value = names::MakeText(text);
}

void Set(int& value, const Query& query, const JobField& field) { value = Number(query, field.key); }

void Set(bool& value, const Query& query, const JobField& field) { value = Flag(query, field.key); }

void WriteField(XmlAnswer::Element& element, const char* key, const std::string& text) {
    element.Value(key, text);
}
void WriteField(XmlAnswer::Element& element, const char* key, int number) { element.Value(key, number); }
void WriteField(XmlAnswer::Element& element, const char* key, bool on) { element.Flag(key, on); }

}  // namespace

void WriteFields(const Job& job, JobField::Shown where, XmlAnswer::Element& element) {
    for (const JobField& field : kJobFields) {
        if ((field.shown & where) == 0) continue;
        std::visit([&](auto member) { WriteField(element, field.key, job.*member); }, field.member);
    }
}

void WriteLastFailure(Transaction& transaction, const Job& job, XmlAnswer::Element& element) {
    const bool fails = job.failed || job.failures > 0;
    const auto event = fails ? history::LastFailure(transaction, job.id) : std::nullopt;
    element.Value("failed_event", event ? event->event : "")
        .Value("failed_detail", event ? event->detail : "");
}

void ApplyWriteBack(const Query& query, Job& job) {
    const std::string key_before = job.acmekey;
    job.processing = false;
    for (const JobField& field : kJobFields) {
        if (field.writer != JobField::Writer::kRun || !query.parameters.Has(field.key)) continue;
        std::visit([&](auto member) { Set(job.*member, query, field); }, field.member);
    }
    if (job.acmekey.empty() && !key_before.empty()) {
        throw Error(Code::kStale, "ambrin.data", std::to_string(job.id),
                    "an empty account key does not replace the stored one");
    }
}

}  // namespace zelvek
