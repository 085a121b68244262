#include "support/target.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

void Hold(bool holds, const char* property, const char* file, int line) {
    if (holds) return;
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, property);
    std::abort();  // libFuzzer keeps the input
}

void HoldEqual(const std::string& is, const std::string& expected, const char* property, const char* file,
               int line) {
    if (is == expected) return;
    std::fprintf(stderr, "is:       \"%s\"\nexpected: \"%s\"\n", is.c_str(), expected.c_str());
    Hold(false, property, file, line);
}

std::string TakeText(FuzzedDataProvider& input) { return input.ConsumeRandomLengthString(); }

std::string TakeRest(FuzzedDataProvider& input) { return input.ConsumeRemainingBytesAsString(); }

std::string TakeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    fuzz::Target(input);
    return 0;
}
