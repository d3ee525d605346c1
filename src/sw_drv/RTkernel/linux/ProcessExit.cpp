#include "sw_drv/RTkernel/linux/ProcessExit.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "sw_drv/RTkernel/linux/Thread.h"

namespace threadfunc {

namespace {

std::atomic<int> endingThread{0};  // id of the thread that ends the process; written once
static_assert(std::atomic<int>::is_always_lock_free, "taken in a signal handler");

}  // namespace

bool claimProcessExit() {
    int nobody = 0;
    return endingThread.compare_exchange_strong(nobody, threadId());
}

void exitProcess(int status) {
    if (claimProcessExit()) std::exit(status);
    holdWhileProcessEnds();
    _exit(status);
}

void holdWhileProcessEnds() {
    const int ending = endingThread;
    if (ending == 0 || ending == threadId()) return;
    for (;;) pause();
}

}  // namespace threadfunc
