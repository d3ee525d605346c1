#pragma once
/// The report that a segmentation fault in any thread leaves behind before the process ends with status 1.

#include <csignal>

namespace threadfunc {

/// Handler for SIGSEGV: writes two lines (process, thread, address) to standard error and ends the process with
/// status 1, by `exit` when nobody ends it yet (see ProcessExit.h), at once otherwise. Ignores every other signal.
/// Runs on the stack of the thread that crashed: an overflow of that stack ends the process by the signal, unreported.
void reportSegmentationFault(int signalNumber, siginfo_t* information, void* context);

/// Makes `reportSegmentationFault` the process's handler of SIGSEGV. Ends the process with status 1, after a line on
/// standard error, when the system refuses. Safe from any thread, any number of times.
void installCrashReport();

}  // namespace threadfunc
