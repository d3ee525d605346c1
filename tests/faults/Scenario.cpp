// What the body of a run says of itself, in the process of the run.

#include "tests/faults/Scenario.h"

#include <chrono>
#include <cstdio>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/faults/Injection.h"
#include "tests/support/Process.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__has_feature)
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define FAULTS_LEAKS() __lsan_do_recoverable_leak_check()
#endif
#endif
#ifndef FAULTS_LEAKS
#define FAULTS_LEAKS() 0
#endif

// The runs check for leaks themselves. The check at the end of a process stops all its threads by ptrace, and a signal
// that comes meanwhile stops it for ever. Unused in other builds.
extern "C" const char* __lsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_options() {
    return "leak_check_at_exit=0";
}  // NOLINT(bugprone-reserved-identifier)

namespace faults {

namespace {

bool somethingIsWrong = false;
std::size_t threadsAllowed = 1;
std::size_t descriptorsAllowed = 0;

}  // namespace

void allowLeftovers(bool timers) {
    threadsAllowed = timers ? 2 : 1;
    descriptorsAllowed = testsupport::openDescriptors() + (timers ? 2 : 0);
}

void wrong(const char* what) {
    const Pause own;
    somethingIsWrong = true;
    std::fprintf(stderr, "[wrong: %s]\n", what);
}

bool isWrong() { return somethingIsWrong; }

void must(bool holds, const char* what) {
    if (!holds) wrong(what);
}

bool done(bool succeeded, const char* what) {
    must(succeeded || aCallFailed(), what);
    return succeeded;
}

bool tried(bool succeeded, const char* what) {
    must(succeeded || aCallStopped(), what);
    return succeeded;
}

void pauseOneMillisecond() {
    const Pause own;
    threadfunc::sleep(1);
}

void lookForLeftovers() {
    disarm();
    // A joined thread may be seen for a moment, and the descriptor that perror works with on another thread.
    const auto threadsAreGone = [] { return testsupport::runningThreads() <= threadsAllowed; };
    const auto descriptorsAreGone = [] { return testsupport::openDescriptors() <= descriptorsAllowed; };
    if (!testsupport::waitFor(threadsAreGone, std::chrono::seconds(2))) wrong("a thread is left");
    if (!testsupport::waitFor(descriptorsAreGone, std::chrono::seconds(2))) wrong("a descriptor is left");
    if (FAULTS_LEAKS() != 0) wrong("memory is left");
}

}  // namespace faults
