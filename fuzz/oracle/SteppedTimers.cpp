#include "fuzz/oracle/SteppedTimers.h"

#include "fuzz/Fuzz.h"
#include "sw_drv/RTkernel/linux/Thread.h"

namespace fuzz {

namespace {

/// Leaves the endless loop of the timer thread.
struct PassEnded {};

struct {
    threadfunc::ThreadFunction body = nullptr;
    void* argument = nullptr;
    int sleeps = 0;  // still to come in this pass
    std::int32_t sleepMs = 0;
    std::int32_t clock = 0;
    std::uint32_t wakes = 0;
} world;

}  // namespace

SteppedTimers::SteppedTimers(std::int32_t clock) {
    world.clock = clock;
    world.wakes = 0;
    for (auto& timer : timers) timer.emplace(*this, 10);
}

SteppedTimers::~SteppedTimers() {
    for (auto& timer : timers) timer.reset();
}

void SteppedTimers::apply(const TimerOperation& operation) {
    auto& timer = timers[operation.timer];
    switch (operation.kind) {
        case TimerOperation::StartOnce:
            return timer->startOnce(operation.number);
        case TimerOperation::StartPeriodic:
            return timer->startPeriodic(operation.number);
        case TimerOperation::RestartOnce:
            return timer->restartOnce();
        case TimerOperation::RestartPeriodic:
            return timer->restartPeriodic();
        case TimerOperation::Stop:
            return timer->stop();
        case TimerOperation::Trigger:
            return timer->trigger();
        case TimerOperation::SetInterval:
            return timer->setInterval(operation.number);
        case TimerOperation::SetValue:
            return timer->setValue(operation.number);
        case TimerOperation::Renew:
            timer.emplace(*this, operation.number);
            return;
        case TimerOperation::React:
            timer->reaction = reactionOf(operation.number);
            return;
        case TimerOperation::None:
            return;
    }
}

std::int32_t SteppedTimers::pass(std::int32_t clock) {
    world.clock = clock;
    world.sleeps = 1;
    try {
        world.body(world.argument);
    } catch (const PassEnded&) {
    }
    return world.sleepMs;
}

std::vector<int> SteppedTimers::takeEvents() {
    std::vector<int> taken;
    for (int value = 0; events.tryGet(value);) taken.push_back(value);
    return taken;
}

std::uint32_t SteppedTimers::wakes() { return world.wakes; }

void SteppedTimers::Reacting::expire() {
    timer_template::expire();
    const TimerOperation chosen = reaction;
    owner.apply(chosen);  // this timer may be gone then
}

}  // namespace fuzz

extern "C" {
// pthread_t threadfunc::ThreadCreate(int, ThreadFunction, void*, unsigned, const char*, int)
pthread_t __wrap__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(int /*priority*/, threadfunc::ThreadFunction function,
                                                               void* argument, unsigned /*stackSize*/,
                                                               const char* /*originFile*/, int /*originLine*/) {
    fuzz::check(fuzz::world.body == nullptr);
    fuzz::world.body = function;
    fuzz::world.argument = argument;
    return 1;
}

// std::int32_t threadfunc::monotonicMilliseconds()
std::int32_t __wrap__ZN10threadfunc21monotonicMillisecondsEv() { return fuzz::world.clock; }

// void threadfunc::TimerPipe::_threadTimerWakeup() const
void __wrap__ZNK10threadfunc9TimerPipe18_threadTimerWakeupEv(const void* /*pipe*/) { ++fuzz::world.wakes; }

// void threadfunc::TimerPipe::_threadTimerSleep(int) const
void __wrap__ZNK10threadfunc9TimerPipe17_threadTimerSleepEi(const void* /*pipe*/, int timeoutMs) {
    fuzz::world.sleepMs = timeoutMs;
    if (fuzz::world.sleeps-- == 0) throw fuzz::PassEnded{};
}
}
