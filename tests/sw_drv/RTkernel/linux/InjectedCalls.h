#pragma once
/// System calls that fail when a test says so, and tell how they were called. The linker puts them before the C
/// library's (see CMakeLists.txt); without a word from a test they pass everything on.

#include <sys/resource.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <string>

namespace injected {

/// One call that can be made to fail.
class Call {
public:
    /// Makes the next `times` calls fail with `errorNumber`, from any thread, and counts calls from 0. The one after
    /// them fails with `lastError`, unless that is 0.
    void fail(int errorNumber, int times = 1, int lastError = 0);
    /// Calls since the last `fail` or `watch`.
    int calls() const { return count; }
    /// Counts calls from 0 and lets them pass.
    void watch() { fail(0, 0); }

    /// For the call itself: the error to fail with, or 0.
    int next();

private:
    std::atomic<int> error{0};
    std::atomic<int> last{0};
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
extern Call errorText;            // strerror, which then gives null
extern Call nanosleep;            // clock_nanosleep
extern Call semaphoreWait;        // sem_wait
extern Call mutexAttributesInit;  // pthread_mutexattr_init
extern Call mutexAttributesType;  // pthread_mutexattr_settype
extern Call mutexAttributesEnd;   // pthread_mutexattr_destroy, never fails
extern Call mutexInit;            // pthread_mutex_init
extern Call mutexDestroy;         // pthread_mutex_destroy, never fails
extern Call semaphoreInit;        // sem_init
extern Call semaphoreDestroy;     // sem_destroy, never fails
extern Call pipeOpen;             // pipe2
extern Call pollWait;             // poll
extern Call byteWrite;            // write of a single byte
extern Call textWrite;            // write of more than one byte
extern Call newNothrow;           // operator new that returns null
extern Call newThrowing;          // operator new, only counted
extern Call setTime;              // settimeofday, which never reaches the system

/// The most bytes that a write of more than one takes.
extern std::atomic<std::size_t> longestWrite;

/// Unless null: called first on every new thread.
extern std::atomic<void (*)()> onThreadStart;

/// Unless null: called on the thread that calls sched_setscheduler, before the call.
extern std::atomic<void (*)()> onSetScheduler;

/// Errors that the calling thread's next call each fails with, unless 0; the mutex is not touched then.
struct LockErrors {
    int lock;     // pthread_mutex_lock
    int tryLock;  // pthread_mutex_trylock
    int unlock;   // pthread_mutex_unlock
};
extern thread_local LockErrors lockErrors;

/// What the last pthread_create was given.
struct CreateArguments {
    sigset_t creatorsMask;
    std::size_t stackBytes;
    int inheritScheduling;
};
extern CreateArguments lastCreate;

/// What the last sched_setscheduler was given.
struct SchedulerArguments {
    int process;
    int policy;
    int priority;
};
extern SchedulerArguments lastScheduler;

/// Whether the last pthread_mutex_init of the calling thread was given attributes.
extern thread_local bool lastMutexHadAttributes;

/// The argument of the last sem_init that says whether processes share it.
extern int lastSemaphoreShared;

/// What the last settimeofday was given.
struct SetTimeArguments {
    long long seconds;
    long long microseconds;
};
extern SetTimeArguments lastSetTime;

/// What the last clock_nanosleep of the calling thread was given.
struct SleepArguments {
    int clock;
    int flags;
    long long seconds;
    long nanoseconds;
    bool operator==(const SleepArguments&) const = default;
};
extern thread_local SleepArguments lastSleep;

/// Milliseconds that the monotonic clock runs ahead.
extern std::atomic<long long> monotonicAheadMs;

/// The monotonic clock of the calling thread stands still for the life of the object, or cannot be read.
class MonotonicClock {
public:
    /// Stands at this moment.
    MonotonicClock(long long seconds, long nanoseconds);
    /// Cannot be read.
    MonotonicClock();
    ~MonotonicClock();
    MonotonicClock(const MonotonicClock&) = delete;
    MonotonicClock& operator=(const MonotonicClock&) = delete;

    const bool readable;
    timespec now{};
};

/// Unless 0: the seconds since 1970 that time gives.
extern std::atomic<long long> secondsNow;

/// Unless 0: the size of a memory page as sysconf gives it.
extern std::atomic<long> pageBytes;

/// Unless null: what getrusage gives.
extern std::atomic<const rusage*> usage;

/// How often getrusage was asked for anything but the whole process.
extern std::atomic<int> otherUsages;

/// Unless null: what every file holds that fopen opens.
extern std::atomic<const char*> fileText;

/// Notes what the calling thread does, for the life of the object; one object a thread at a time.
class Steps {
public:
    Steps();
    ~Steps();
    Steps(const Steps&) = delete;
    Steps& operator=(const Steps&) = delete;

    /// One letter a call, in order: a mutex Locked or Unlocked, a semaphore waited for (w), tried (t) or posted (p),
    /// the monotonic clock read (c), a single byte Written.
    std::string taken() const { return {letters.data(), used}; }
    /// For the calls themselves.
    static void note(char letter);

private:
    std::array<char, 64> letters{};
    std::size_t used = 0;
};

}  // namespace injected
