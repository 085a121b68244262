#pragma once

#include <sys/stat.h>

namespace zelvek {

/// The process's umask for as long as this lives. For times when no other thread makes files. Leaves errno as
/// it is.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

}  // namespace zelvek
