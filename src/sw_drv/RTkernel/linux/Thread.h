#pragma once
/// The one way to start, tune, join and put to sleep a thread.
///
/// Every thread of the system comes from `ThreadCreate`, so every thread has the same signal mask, the same report of
/// a segmentation fault and a priority from one scale: 0 is the highest round-robin real-time priority, each step up
/// is one step lower, and what lies below the lowest is an ordinary time-sharing thread.

#include <pthread.h>

#include <cstdint>

namespace threadfunc {

/// Body of a thread: takes the pointer that was given to `ThreadCreate`; its result is what `threadJoin` returns.
using ThreadFunction = std::uint32_t (*)(void*);

/// Smallest stack of a thread in bytes; smaller requests get this much. About 11.9 KB of it are usable.
/// Sanitizers need room of their own on each stack, in builds that no customer sees.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define THREADFUNC_INSTRUMENTED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define THREADFUNC_INSTRUMENTED
#endif
#endif
#if defined(THREADFUNC_INSTRUMENTED)
inline constexpr unsigned kMinimumStackBytes = 1U << 18U;
#else
inline constexpr unsigned kMinimumStackBytes = 16384;
#endif
#undef THREADFUNC_INSTRUMENTED

/// Starts a thread that runs `function(argument)` at `priority` on the scale above. Returns its handle, which the
/// caller joins with `threadJoin`, or 0 when it could not be started; one line on standard error then says why.
/// `stackSize` is in bytes, raised to `kMinimumStackBytes` (0 asks for that). `originFile` and `originLine` name the
/// place in the source that asks; the text is borrowed for the life of the process, null prints no start lines.
/// Safe from any thread; returns at once.
pthread_t ThreadCreate(int priority, ThreadFunction function, void* argument, unsigned stackSize,
                       const char* originFile, int originLine);

/// Waits for `thread` to end and returns the result of its function. Returns 0, with one line on standard error, when
/// it cannot be joined: a handle of 0, the calling thread itself. A handle is joined once. Safe from any thread.
std::uint32_t threadJoin(pthread_t thread);

/// What every new thread does first, callable on any thread: blocks all signals but SIGSEGV on the calling thread,
/// installs the report of segmentation faults for the whole process, and sets the thread's scheduling: SCHED_RR with
/// the operating system's priority `rtPriority`, or SCHED_OTHER when it is 0. Without the right to do that the thread
/// keeps its scheduling; the line on standard error about it is suppressed while quiet.
void InitThread(int rtPriority);

/// The operating system's SCHED_RR priority for `priority` on the kit's scale; 0, which stands for SCHED_OTHER, when
/// it would lie below the lowest. Values above the highest come from negative priorities; the system refuses them.
int rtPriorityOf(int priority);

/// The calling thread's priority on the kit's scale (99 on Linux for time-sharing threads). Returns -1, with one line
/// on standard error, when it cannot be read.
int threadPriority();

/// Sleeps the calling thread for `msec` milliseconds of the monotonic clock, also across signals. Negative values
/// return at once.
void sleep(int msec);

/// The kernel's id of the calling thread.
int threadId();

/// Quiet, as the process starts: threads start without the two start lines, and a missing right to set priorities is
/// not reported. Affects threads created afterwards; safe from any thread.
void threadQuietOn();
/// Ends `threadQuietOn`: for finding out which threads a program starts, and from where.
void threadQuietOff();

}  // namespace threadfunc
