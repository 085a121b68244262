#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "vek/client.h"
#include "zelvek/base/command_line.h"

namespace zelvek::cli {

/// Which part of a list is shown.
struct Part {
    std::optional<int> limit;  // the most entries; without it every one
    std::optional<int> after;  // only entries with a greater number
};

/// The same of a list whose entries have places instead of numbers.
struct PlacedPart {
    std::optional<int> limit;
    std::string after = {};  // only entries after this place, or whatever else the service takes for one
};

/// Adds the options "--limit" and "--after". `after` describes the latter.
void AddPartOptions(Command& command, Part& part, const std::string& after);

/// Sends the parameters of one page, "limit" and "after", and returns the answer.
using AskPage = std::function<vek_client::Result(const std::map<std::string, std::string>& parameters)>;

/// Asks for a list, whose entries have growing numbers in their element `number`, and gives each entry of the
/// part to `take`. It asks page by page, so that no answer grows with the list; a service that knows no pages
/// and answers with everything is asked once. Errors: those of `ask`.
void ForEachEntry(const AskPage& ask, const std::string& number, const Part& part,
                  const std::function<void(const vek_xml::Node&)>& take);

/// The same for a list whose entries tell their places in the element "place".
void ForEachPlaced(const AskPage& ask, const PlacedPart& part,
                   const std::function<void(const vek_xml::Node&)>& take);

}  // namespace zelvek::cli
