#include "sw_drv/RTkernel/linux/Thread.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "sw_drv/RTkernel/linux/CrashReport.h"
#include "sw_drv/RTkernel/linux/WholeText.h"

namespace threadfunc {

namespace {

std::atomic<bool> quietThreads{true};  // written by threadQuietOn and threadQuietOff

struct ThreadStartRecord {
    ThreadFunction function;
    void* argument;
    std::int32_t rtPriority;
    const char* originFile;  // null: no start lines
    std::int32_t originLine;
};

class ThreadAttributes {
public:
    ThreadAttributes() : initError(pthread_attr_init(&attributes)) {}
    ~ThreadAttributes() {
        if (initError == 0) pthread_attr_destroy(&attributes);
    }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    int setStackSize(unsigned bytes) { return pthread_attr_setstacksize(&attributes, bytes); }
    const pthread_attr_t* get() const { return &attributes; }

private:
    pthread_attr_t attributes{};

public:
    const int initError;
};

// The C library has no text when it would have to put one together, as for -1, and memory has run out.
std::string_view errorText(int error) {
    const char* const text = std::strerror(error);
    return text != nullptr ? std::string_view(text) : std::string_view();
}

void reportError(const char* what, int error) { printWhole(std::cerr, {what, errorText(error), "\n"}); }

pthread_t notStarted(const char* what, int error) {
    reportError(what, error);
    return 0;
}

sigset_t everySignalButSegv() {
    sigset_t signals;
    sigfillset(&signals);
    sigdelset(&signals, SIGSEGV);
    return signals;
}

// A new thread inherits its creator's signal mask: with all signals blocked here, none can land in it before it has
// set its own.
class SignalsBlocked {
public:
    SignalsBlocked() {
        const sigset_t signals = everySignalButSegv();
        pthread_sigmask(SIG_SETMASK, &signals, &previous);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t previous{};
};

void printStartLines(const ThreadStartRecord& record) {
    const int priority = threadPriority();  // first: it may have a line of its own
    printWhole(std::cout, {"Starting thread. Process: ", std::to_string(getpid()),
                           ", thread: ", std::to_string(threadId()), ", priority: ", std::to_string(priority),
                           "\nCall origin: ", record.originFile, " line ", std::to_string(record.originLine), "\n"});
}

void* startRoutine(void* argument) {
    std::unique_ptr<ThreadStartRecord> record(static_cast<ThreadStartRecord*>(argument));
    InitThread(record->rtPriority);
    if (record->originFile != nullptr) printStartLines(*record);
    const std::uint32_t result = record->function(record->argument);
    record.reset();
    return std::bit_cast<void*>(std::uintptr_t{result});
}

void setScheduling(int rtPriority) {
    sched_param parameters{};
    parameters.sched_priority = rtPriority;
    if (sched_setscheduler(0, rtPriority != 0 ? SCHED_RR : SCHED_OTHER, &parameters) == 0) return;
    const int error = errno;
    if (error == EPERM && quietThreads) return;
    const char* const hint = error == EPERM ? " # Run as ROOT to allow setting of thread priority" : "";
    printWhole(std::cerr,
               {"threadfunc::InitThread() - sched_setscheduler() reports error: ", errorText(error), hint, "\n"});
}

timespec monotonicDeadline(int msec) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += msec / 1000;
    deadline.tv_nsec += msec % 1000 * 1'000'000L;
    if (deadline.tv_nsec > 999'999'999) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1'000'000'000;
    }
    return deadline;
}

}  // namespace

pthread_t ThreadCreate(int priority, ThreadFunction function, void* argument, unsigned stackSize,
                       const char* originFile, int originLine) {
    ThreadAttributes attributes;
    if (attributes.initError != 0)
        return notStarted("threadfunc::ThreadCreate() - pthread_attr_init() reports error: ", attributes.initError);
    if (const int error = attributes.setStackSize(std::max(stackSize, kMinimumStackBytes)); error != 0)
        return notStarted("threadfunc::ThreadCreate() - pthread_attr_setstacksize() reports error: ", error);

    std::unique_ptr<ThreadStartRecord> record(new (std::nothrow) ThreadStartRecord{
        function, argument, rtPriorityOf(priority), quietThreads ? nullptr : originFile, originLine});
    if (record == nullptr) return 0;

    const SignalsBlocked blocked;
    pthread_t thread{};
    if (const int error = pthread_create(&thread, attributes.get(), startRoutine, record.get()); error != 0)
        return notStarted("threadfunc::ThreadCreate() - pthread_create() reports error: ", error);
    static_cast<void>(record.release());  // the new thread owns it now
    return thread;
}

std::uint32_t threadJoin(pthread_t thread) {
    void* result = nullptr;
    // The C library reads through the handle, which a failed ThreadCreate leaves at 0.
    const int error = thread == 0 ? ESRCH : pthread_join(thread, &result);
    if (error != 0) reportError("threadfunc::threadJoin() - pthread_join() reports error: ", error);
    return static_cast<std::uint32_t>(std::bit_cast<std::uintptr_t>(result));
}

void InitThread(int rtPriority) {
    const sigset_t signals = everySignalButSegv();
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    installCrashReport();
    setScheduling(rtPriority);
}

int rtPriorityOf(int priority) {
    const std::int64_t wanted = std::int64_t{sched_get_priority_max(SCHED_RR)} - priority;
    if (wanted < sched_get_priority_min(SCHED_RR)) return 0;
    return static_cast<int>(std::min<std::int64_t>(wanted, INT32_MAX));
}

int threadPriority() {
    sched_param parameters{};
    const int result = sched_getparam(0, &parameters);
    if (result == 0) return sched_get_priority_max(SCHED_RR) - parameters.sched_priority;
    // The text is that of the result, -1, and not of errno: log filters of the service tools know this line.
    reportError("threadfunc::threadPriority() - sched_getparam() reports error: ", result);
    return -1;
}

void sleep(int msec) {
    if (msec < 0) return;
    const timespec deadline = monotonicDeadline(msec);
    unsigned calls = 0;
    int result = EINTR;
    while (result == EINTR) {
        result = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
        ++calls;
    }
    if (result == 0) return;
    printWhole(std::cerr, {"threadfunc::sleep() - nanosleep() reports result: ", std::to_string(result),
                           " msec: ", std::to_string(msec), " tv_sec: ", std::to_string(deadline.tv_sec),
                           " tv_nsec: ", std::to_string(deadline.tv_nsec), " cnt: ", std::to_string(calls), "\n"});
}

int threadId() { return gettid(); }

void threadQuietOn() { quietThreads = true; }

void threadQuietOff() { quietThreads = false; }

}  // namespace threadfunc
