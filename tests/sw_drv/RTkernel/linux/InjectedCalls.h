#pragma once
/// System calls that fail when a test says so, and tell how they were called. The linker puts them before the C
/// library's (see CMakeLists.txt); without a word from a test they pass everything on.

#include <atomic>
#include <csignal>
#include <cstddef>

namespace injected {

/// One call that can be made to fail.
class Call {
public:
    /// Makes the next `times` calls fail with `errorNumber`, from any thread, and counts calls from 0.
    void fail(int errorNumber, int times = 1);
    /// Calls since the last `fail` or `watch`.
    int calls() const { return count; }
    /// Counts calls from 0 and lets them pass.
    void watch() { fail(0, 0); }

    /// For the call itself: the error to fail with, or 0.
    int next();

private:
    std::atomic<int> error{0};
    std::atomic<int> left{0};
    std::atomic<int> count{0};
};

extern Call attributesInit;       // pthread_attr_init
extern Call attributesStackSize;  // pthread_attr_setstacksize
extern Call attributesDestroy;    // pthread_attr_destroy, never fails
extern Call threadCreate;         // pthread_create
extern Call signalAction;         // sigaction
extern Call setScheduler;         // sched_setscheduler
extern Call getParam;             // sched_getparam
extern Call nanosleep;            // clock_nanosleep
extern Call semaphoreWait;        // sem_wait
extern Call mutexAttributesInit;  // pthread_mutexattr_init
extern Call mutexAttributesType;  // pthread_mutexattr_settype
extern Call mutexInit;            // pthread_mutex_init
extern Call pipeOpen;             // pipe2
extern Call pollWait;             // poll
extern Call byteWrite;            // write of a single byte
extern Call newNothrow;           // operator new that returns null
extern Call newThrowing;          // operator new, only counted
extern Call setTime;              // settimeofday, which never reaches the system

/// What the last pthread_create was given.
struct CreateArguments {
    sigset_t creatorsMask;
    std::size_t stackBytes;
    int inheritScheduling;
};
extern CreateArguments lastCreate;

/// What the last settimeofday was given.
struct SetTimeArguments {
    long long seconds;
    long long microseconds;
};
extern SetTimeArguments lastSetTime;

/// Milliseconds that the monotonic clock runs ahead.
extern std::atomic<long long> monotonicAheadMs;

}  // namespace injected
