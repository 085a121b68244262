#pragma once

/// The orderly end of a run: SIGTERM and SIGINT are remembered here, and every wait looks whether one has
/// come.
namespace vek_interrupt {

/// Handles SIGTERM and SIGINT from now on. Only the launcher calls it: a program with a `main` of its own
/// keeps its own handling, and its waits are never interrupted. Errors: vek_err::Error("launcher", "start",
/// reason).
void Watch();

/// Throws vek_proc::Interrupted once a signal has come; the first one counts.
void Check();

/// Whether the same signal has come once more: whoever sends it does not want to wait for anything.
bool IsRepeated();

/// Readable from the first signal on, and never emptied, so that every later wait returns at once; -1, which
/// poll(2) skips, where nothing is watched.
int WakeFd();

}  // namespace vek_interrupt
