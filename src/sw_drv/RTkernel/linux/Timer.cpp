#include "sw_drv/RTkernel/linux/Timer.h"

#include "sw_drv/RTkernel/linux/Clock.h"

namespace threadfunc {

TTimerBase::TTimerBase(int intervalMs) : entry{this, 0}, interval_(intervalMs) { TimerService::instance(); }

TTimerBase::~TTimerBase() { retire(); }

void TTimerBase::startPeriodic(int ms) { start(ms, true); }

void TTimerBase::startOnce(int ms) { start(ms, false); }

void TTimerBase::restartOnce() { start(interval(), false); }

void TTimerBase::restartPeriodic() { start(interval(), true); }

void TTimerBase::stop() {
    const MutexLock lock(timerMutex());
    disarm();
    TimerService::instance().awaitExpiry(this);
}

void TTimerBase::trigger() {
    std::uint32_t stopsBefore = 0;
    {
        const MutexLock lock(timerMutex());
        stopsBefore = stops;
    }
    expire();
    const std::int32_t now = monotonicMilliseconds();
    bool wake = false;
    {
        const MutexLock lock(timerMutex());
        if (periodic && stops == stopsBefore) wake = arm(now, interval_);
    }
    if (wake) TimerService::instance().wake();
}

void TTimerBase::setInterval(int ms) {
    const MutexLock lock(timerMutex());
    interval_ = ms;
}

int TTimerBase::interval() const {
    const MutexLock lock(timerMutex());
    return interval_;
}

void TTimerBase::retire() {
    const MutexLock lock(timerMutex());
    entry.owner = nullptr;
    disarm();
    TimerService::instance().forget(this);
}

// Disarming, the change of the fields and arming are one locked step: two threads that start one timer leave it listed
// once, with the time and the kind of the same start.
void TTimerBase::start(int ms, bool repeat) {
    const std::int32_t now = monotonicMilliseconds();
    bool wake = false;
    {
        const MutexLock lock(timerMutex());
        TimerService::instance().unlist(entry);
        periodic = repeat;
        wake = arm(now, ms);
    }
    if (wake) TimerService::instance().wake();
}

// A timer that is being destroyed is not listed, but wakes the timer thread all the same; who arms one in its last
// moments counts on the thread taking a look.
bool TTimerBase::arm(std::int32_t now, std::int32_t ms) {
    if (entry.owner == nullptr) return true;
    interval_ = ms;
    entry.due = dueTime(now, ms);
    return TimerService::instance().relist(entry);
}

void TTimerBase::disarm() {
    ++stops;
    TimerService::instance().unlist(entry);
}

}  // namespace threadfunc
