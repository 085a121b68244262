#pragma once

/// The plug-in's entry point. The framework owns `main` and calls it. An exception that leaves it is written
/// to standard error and the log, and the exit status is then neither 0 nor 1; static objects are destroyed
/// in any case.
int zelmain(int argc, char** argv);
