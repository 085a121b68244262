#include "double/state.h"
#include "vek/date.h"
#include "vek/str.h"

namespace vek_date {

DateTime::DateTime() : DateTime("2030-06-01 12:00:00") {
    if (const vek_double::World::State* world = vek_double::Current()) *this = world->now;
}

}  // namespace vek_date

namespace str {

/// The bytes of the n-th call are its number, so that no two of a test are alike and each can be foretold.
std::string Random(std::size_t count) {
    vek_double::Enter("random", std::to_string(count));
    std::size_t number = 0;
    if (const vek_double::World::State* world = vek_double::Current())
        for (const vek_double::Call& call : world->calls) number += call.kind == "random" ? 1 : 0;
    std::string bytes(count, '\0');
    for (std::size_t i = count; i > 0 && number > 0; --i, number >>= 8U)
        bytes[i - 1] = static_cast<char>(number & 0xFFU);
    return bytes;
}

}  // namespace str
