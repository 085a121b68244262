#pragma once

#include <sys/types.h>

#include <string>

#include "fd.h"
#include "vek/proc.h"

namespace vek_proc {

/// The ends of a pipe; both close on exec, and neither is one of the standard descriptors.
struct Pipe {
    Fd read;
    Fd write;
};

/// Errors: vek_err::Error("proc", "start", reason).
Pipe MakePipe();

/// Starts `/bin/sh -c command` with these descriptors as its standard input and output (-1: empty input, this
/// process's own output); every other descriptor but standard error is closed in it, and it handles signals
/// as a fresh process does. Safe with threads. Errors: vek_err::Error("proc", "start", reason).
pid_t Spawn(const std::string& command, int input, int output, bool own_session);

/// Starts a program without a shell likewise. Its standard error goes where its standard output goes.
pid_t Spawn(const Program& program, int input, int output, bool own_session);

}  // namespace vek_proc
