#pragma once

#include "zelvek/base/job.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/xml_answer.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Adds the job's fields that are shown there to an answer's element.
void WriteFields(const Job& job, JobField::Shown where, XmlAnswer::Element& element);

/// Adds the newest failure among the job's events, where it fails: "failed_event", "failed_detail"; both
/// empty where it does not, or where none is remembered.
void WriteLastFailure(Transaction& transaction, const Job& job, XmlAnswer::Element& element);

/// Takes over what a run sends back; what it does not send stays, except that the run is over. Errors: Error
/// of code kValue for a number, flag or date that is none; of code kStale for an empty account key in the
/// place of a stored one, which comes from a run that could not read the record.
void ApplyWriteBack(const Query& query, Job& job);

}  // namespace zelvek
