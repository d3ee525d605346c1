#include "sw_drv/RTkernel/linux/TimerService.h"

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/Timer.h"

namespace threadfunc {

mutex& timerMutex() {
    static mutex& timerLock = *new mutex;
    return timerLock;
}

TimerList& timerListHead() {
    static TimerList& timerList = *new TimerList;
    return timerList;
}

TimerService& TimerService::instance() {
    static TimerService& service = []() -> TimerService& {
        {
            // Before there is any timer: its destructor must find both, also when memory has run out since.
            const MutexLock lock(timerMutex());
            timerListHead();
        }
        TimerService& created = *new TimerService;
        created.start();
        return created;
    }();
    return service;
}

bool TimerService::relist(TimerEntry& entry) {
    unlist(entry);
    return timerListHead().insert(entry);
}

void TimerService::unlist(TimerEntry& entry) {
    timerListHead().remove(entry);
    pending.remove(&entry);
}

void TimerService::awaitExpiry(const TTimerBase* timer) {
    if (running != timer || runsOnThisThread(timer)) return;
    const std::uint32_t before = endedExpiries;
    while (endedExpiries == before) expiryEnded.wait(timerMutex());
}

void TimerService::forget(const TTimerBase* timer) {
    if (runsOnThisThread(timer)) running = nullptr;
    awaitExpiry(timer);
}

bool TimerService::runsOnThisThread(const TTimerBase* timer) const {
    return running == timer && pthread_equal(timerThread, pthread_self()) != 0;
}

// The origin is that of the line that started it first; those who search old logs know the thread by it.
void TimerService::start() {
    const ThreadFunction body = [](void* service) -> std::uint32_t {
        static_cast<TimerService*>(service)->run();
        return 0;
    };
    ThreadCreate(0, body, this, 16384, "sw_drv/RTkernel/linux/src/threadfunc", 385);
}

void TimerService::run() {
    std::int32_t timeoutMs = kIdleTimeoutMs;
    for (;;) {
        pipe._threadTimerSleep(timeoutMs);
        timeoutMs = collectDue();
        while (expireNext()) {
        }
    }
}

// All that is due now is collected at once, so that a timer that is armed for 0 ms by its own expiry comes again in the
// next pass, and not before others.
std::int32_t TimerService::collectDue() {
    const std::int32_t now = monotonicMilliseconds();
    const MutexLock lock(timerMutex());
    pending.splice(pending.end(), timerListHead().popDue(now));
    return timerListHead().nextTimeoutMs(now);
}

bool TimerService::expireNext() {
    TTimerBase* const timer = beginExpiry();
    if (timer == nullptr) return false;
    timer->expire();
    if (endExpiry()) wake();
    return true;
}

TTimerBase* TimerService::beginExpiry() {
    const MutexLock lock(timerMutex());
    if (pending.empty()) return nullptr;
    running = pending.front()->owner;
    pending.pop_front();
    runningStops = running->stops;
    timerThread = pthread_self();
    return running;
}

// Ends the expiry and arms a periodic timer again in one locked step: `stop` comes either before it, and is heeded, or
// after it, and finds the timer armed. Afterwards the timer may be gone.
bool TimerService::endExpiry() {
    const std::int32_t now = monotonicMilliseconds();
    const MutexLock lock(timerMutex());
    TTimerBase* const timer = running;
    running = nullptr;
    ++endedExpiries;
    expiryEnded.notify_all();
    const bool repeats = timer != nullptr && timer->periodic && timer->stops == runningStops;
    return repeats && timer->arm(now, timer->interval_);
}

}  // namespace threadfunc
