#include "sw_drv/RTkernel/linux/Clock.h"

#include <optional>

#include "sw_drv/RTkernel/linux/Mutex.h"
#include "sw_drv/RTkernel/linux/TimeConversion.h"

namespace threadfunc {

namespace {

struct SecondsAndMicroseconds {
    std::int32_t seconds;
    std::int32_t microseconds;
};

struct SimulatedClock {
    mutex lock;
    std::optional<timeval> time GUARDED_BY(lock);
};

timespec monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

SecondsAndMicroseconds withMicroseconds(const timespec& time) {
    return {static_cast<std::int32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_nsec / 1000)};
}

const SecondsAndMicroseconds& processTimeBase() {
    static const SecondsAndMicroseconds base = withMicroseconds(monotonicNow());
    return base;
}

// Takes the base as the program starts; an initialiser of another file that asks for the time earlier takes it then.
[[maybe_unused]] const SecondsAndMicroseconds& takenAtStart = processTimeBase();

const timespec& monotonicBase() {
    static const timespec base = monotonicNow();
    return base;
}

// Never destroyed: other threads may read it while the process ends.
SimulatedClock& simulatedClock() {
    static SimulatedClock& clock = *new SimulatedClock;
    return clock;
}

std::optional<timeval> simulatedTime() {
    SimulatedClock& clock = simulatedClock();
    const MutexLock lock(clock.lock);
    return clock.time;
}

timeval systemTime() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

SecondsAndMicroseconds nowForStopwatches() {
    const std::optional<timeval> simulated = simulatedTime();
    if (!simulated) return withMicroseconds(monotonicNow());
    return {static_cast<std::int32_t>(simulated->tv_sec), static_cast<std::int32_t>(simulated->tv_usec)};
}

// In 32 bits, around the corner if need be.
std::int32_t difference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

}  // namespace

int startMonotonicClock() {
    monotonicBase();
    timespec now{};
    return clock_gettime(CLOCK_MONOTONIC, &now);
}

std::int32_t monotonicMilliseconds() {
    const timespec& base = monotonicBase();  // before now: the first reading is 0
    return millisecondsSince(base, monotonicNow());
}

std::int32_t millisecondsSince(const timespec& base, const timespec& now) {
    const std::int64_t seconds = std::int64_t{now.tv_sec} - base.tv_sec;
    const std::int64_t milliseconds = seconds * 1000 + (now.tv_nsec - base.tv_nsec) / 1'000'000;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds));
}

double secondsSinceStart() {
    const SecondsAndMicroseconds now = nowForStopwatches();
    const SecondsAndMicroseconds& base = processTimeBase();
    return difference(now.seconds, base.seconds) + difference(now.microseconds, base.microseconds) / 1e6;
}

timeval wallClockNow() {
    const std::optional<timeval> simulated = simulatedTime();
    return simulated ? *simulated : systemTime();
}

std::time_t wallClockSeconds() {
    const std::optional<timeval> simulated = simulatedTime();
    return simulated ? simulated->tv_sec : std::time(nullptr);
}

std::time_t advanceSimulatedTime(double seconds) {
    SimulatedClock& clock = simulatedClock();
    const MutexLock lock(clock.lock);
    clock.time = addSeconds(clock.time ? *clock.time : systemTime(), seconds);
    return clock.time->tv_sec;
}

}  // namespace threadfunc
