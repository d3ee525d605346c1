#pragma once
/// The timer thread and what it shares with the timers.
///
/// | thread       | started by      | ends             | work                                        |
/// |--------------|-----------------|------------------|---------------------------------------------|
/// | timer thread | the first timer | with the process | runs the expiries of all timers in turn     |
///
/// All of it is created on first use and never destroyed, because the timer thread still works while the process ends.
/// It does not follow into a child process after fork: timers of the child never expire.

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <list>

#include "sw_drv/RTkernel/linux/Mutex.h"
#include "sw_drv/RTkernel/linux/TimerList.h"
#include "sw_drv/RTkernel/linux/TimerPipe.h"

namespace threadfunc {

/// Guards the list of timers and the fields of every timer. Outermost: not held while an expiry runs, while the pipe is
/// written, or while a queue is used.
mutex& timerMutex();

/// The armed timers.
TimerList& timerListHead() REQUIRES(timerMutex());

/// For the timers only.
class TimerService {
public:
    /// The one service; the first call, which may come from any thread, opens the pipe and starts the thread.
    static TimerService& instance();

    TimerService() = default;
    TimerService(const TimerService&) = delete;
    TimerService& operator=(const TimerService&) = delete;

    /// Lists `entry` by its due time, once, wherever it was listed before. Returns true when the thread must be woken.
    bool relist(TimerEntry& entry) REQUIRES(timerMutex());
    /// Takes `entry` out, also when it is due and waits for its turn.
    void unlist(TimerEntry& entry) REQUIRES(timerMutex());
    /// Waits until an expiry of `timer` that runs on the timer thread has ended. Called from within that expiry it
    /// returns at once. Gives the lock away while it waits.
    void awaitExpiry(const TTimerBase* timer) REQUIRES(timerMutex());
    /// Like `awaitExpiry`, for a timer that dies: from within its own expiry it makes the thread forget it.
    void forget(const TTimerBase* timer) REQUIRES(timerMutex());
    /// Makes the thread look at the list.
    void wake() const EXCLUDES(timerMutex()) { pipe._threadTimerWakeup(); }

private:
    void start();
    void run();
    std::int32_t collectDue() EXCLUDES(timerMutex());
    bool expireNext() EXCLUDES(timerMutex());
    TTimerBase* beginExpiry() EXCLUDES(timerMutex());
    bool endExpiry() EXCLUDES(timerMutex());
    bool runsOnThisThread(const TTimerBase* timer) const REQUIRES(timerMutex());

    TimerPipe pipe;
    std::list<TimerEntry*> pending GUARDED_BY(timerMutex());        // due, waiting for their turn
    TTimerBase* running GUARDED_BY(timerMutex()) = nullptr;         // its expiry runs on the timer thread
    std::uint32_t runningStops GUARDED_BY(timerMutex()) = 0;        // its count of stops when the expiry began
    std::uint32_t endedExpiries GUARDED_BY(timerMutex()) = 0;       // wraps; compared for being equal only
    pthread_t timerThread GUARDED_BY(timerMutex()) = pthread_t{0};  // written when it begins its first expiry
    std::condition_variable_any expiryEnded;
};

}  // namespace threadfunc
