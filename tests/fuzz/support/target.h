#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

/// What every fuzz target is made of.
namespace fuzz {

/// The target itself, one per program: does its work on one input and says with `Hold` what has to be true.
/// An exception that leaves it is a finding.
void Target(FuzzedDataProvider& input);

/// Ends the run as a finding when a property does not hold.
void Hold(bool holds, const char* property, const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// As `Hold` of their equality; shows both.
void HoldEqual(const std::string& is, const std::string& expected, const char* property,
               const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// One text of the input, of any bytes: in a seed it ends at a backslash that no second one follows, with the
/// character after it.
std::string TakeText(FuzzedDataProvider& input);

/// Everything that is left of the input.
std::string TakeRest(FuzzedDataProvider& input);

/// Cuts the first line off a text.
std::string TakeLine(std::string& text);

}  // namespace fuzz
