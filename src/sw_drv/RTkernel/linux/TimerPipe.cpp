#include "sw_drv/RTkernel/linux/TimerPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>

#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/WholeText.h"

namespace threadfunc {

TimerPipe::TimerPipe() : TimerPipe(-1, -1) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        printWhole(std::cerr, {" Unable to initialize pipe for Thread timer\n"});
        return;
    }
    readEnd = ends[0];
    writeEnd = ends[1];
}

TimerPipe::TimerPipe(int readDescriptor, int writeDescriptor) : readEnd(readDescriptor), writeEnd(writeDescriptor) {}

TimerPipe::~TimerPipe() {
    if (readEnd >= 0) close(readEnd);
    if (writeEnd >= 0) close(writeEnd);
}

void TimerPipe::_threadTimerWakeup() const {
    const char byte = 0;
    if (write(writeEnd, &byte, 1) == 1) return;
    if (errno == EAGAIN) return;  // the pipe is full of wake-ups that are not taken yet
    printWhole(std::cerr, {" _threadTimerWakeup unable to do a write\n"});
}

void TimerPipe::_threadTimerSleep(int timeoutMs) const {
    // Unlike select it serves any descriptor number, and sleeps the whole time when there is no pipe (-1).
    pollfd readable{readEnd, POLLIN, 0};
    const int ready = poll(&readable, 1, timeoutMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) return;
    // A descriptor that cannot be waited for must not send the thread round and round at the highest priority.
    if (ready < 0 || (readable.revents & POLLIN) == 0) return threadfunc::sleep(timeoutMs);
    char byte = 0;
    if (read(readEnd, &byte, 1) != 1) printWhole(std::cerr, {" _threadTimerSleep unable to do a read\n"});
}

}  // namespace threadfunc
