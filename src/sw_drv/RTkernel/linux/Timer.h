#pragma once
/// Timers turn the passing of time into values in a queue. One thread serves all timers of the process.

#include <cstdint>

#include "sw_drv/RTkernel/linux/MessageQueue.h"
#include "sw_drv/RTkernel/linux/Mutex.h"
#include "sw_drv/RTkernel/linux/TimerList.h"
#include "sw_drv/RTkernel/linux/TimerService.h"

namespace threadfunc {

/// A timer that calls `expire` when its time has come, on the timer thread. All members may be called by any thread,
/// also from within `expire`. Times are milliseconds, 0 to `kLongestDelayMs`; what lies outside counts as the nearest
/// of these. A timer comes up to 2 ms early on a finer clock, and as late as the timer thread is.
///
/// A class that overrides `expire` calls `retire` first in its destructor: an expiry may be running.
class TTimerBase {
public:
    /// Not armed; `intervalMs` is what the restarts use. The first timer of the process starts the timer thread.
    explicit TTimerBase(int intervalMs);
    /// Disarms and waits as `stop` does. No other thread may use the timer any more.
    virtual ~TTimerBase();
    TTimerBase(const TTimerBase&) = delete;
    TTimerBase& operator=(const TTimerBase&) = delete;

    /// Expires after `ms` and from then on every `interval()`, counted from the end of the last expiry. Like the other
    /// starts it first disarms, and makes `ms` the interval.
    void startPeriodic(int ms);
    /// Expires once, after `ms`.
    void startOnce(int ms);
    /// `startOnce(interval())`.
    void restartOnce();
    /// `startPeriodic(interval())`.
    void restartPeriodic();

    /// Disarms. When it returns no expiry runs on the timer thread and none will until the next start; for that it
    /// waits for one in flight, except from within that expiry. A caller must not hold a lock that `expire` takes.
    void stop();

    /// Calls `expire` on the calling thread; then, when the timer is periodic, arms it for the interval from now.
    /// May run beside an expiry on the timer thread; `stop` and destruction do not wait for it.
    void trigger();

    /// Sets what the restarts and the next periodic expiry use, and neither arms nor disarms.
    void setInterval(int ms);
    /// The interval as it was last set, by `setInterval` or a start.
    int interval() const;

    /// What happens when the time has come. Runs on the timer thread, which serves nobody else meanwhile, or in
    /// `trigger`; no lock is held.
    virtual void expire() = 0;

protected:
    /// Ends the timer for good: disarms and waits as `stop` does, and no later start arms it. Called again it does
    /// nothing.
    void retire();

private:
    friend class TimerService;

    void start(int ms, bool repeat);
    bool arm(std::int32_t now, std::int32_t ms) REQUIRES(timerMutex());
    void disarm() REQUIRES(timerMutex());

    TimerEntry entry GUARDED_BY(timerMutex());
    bool periodic GUARDED_BY(timerMutex()) = false;
    std::int32_t interval_ GUARDED_BY(timerMutex());
    std::uint32_t stops GUARDED_BY(timerMutex()) = 0;  // an expiry that sees it change is not followed by another
};

/// A timer whose expiry puts a value into a queue.
template <typename T>
class timer_template : public TTimerBase {
public:
    /// Borrows `queue`, which must outlive the timer; null makes expiries do nothing.
    timer_template(int intervalMs, queue_template<T>* queue, T initialValue)
        : TTimerBase(intervalMs), target(queue), value(initialValue) {}
    ~timer_template() override { retire(); }

    /// What the next expiries put into the queue.
    void setValue(T newValue) {
        const MutexLock lock(timerMutex());
        value = newValue;
    }

    /// Puts the value into the queue. When that is full the event is lost: a slow reader never holds up the timers.
    void expire() override {
        const Event event = currentEvent();
        if (event.queue != nullptr) static_cast<void>(event.queue->tryPut(event.value));
    }

private:
    struct Event {
        queue_template<T>* queue;
        T value;
    };

    // A copy, so that the timers' lock is free again before the queue's is taken.
    Event currentEvent() const {
        const MutexLock lock(timerMutex());
        return {target, value};
    }

    queue_template<T>* target GUARDED_BY(timerMutex());
    T value GUARDED_BY(timerMutex());
};

}  // namespace threadfunc
