#include "end.h"

#include <atomic>

namespace vek_end {
namespace {

std::atomic<bool> asked{false};
std::atomic<bool> heard{false};
std::atomic<int> status_unasked{0};

}  // namespace

void NoteQuery() { asked = true; }

void NoteService() { heard = true; }

void NoteStatus(int status) {
    if (!asked) status_unasked = status;
}

bool HasNothingToStore() { return status_unasked != 0; }

int StatusUnheard() { return heard ? 0 : status_unasked.load(); }

}  // namespace vek_end
