#pragma once
/// The clocks of the kit: milliseconds for timers, seconds for stopwatches, wall-clock time, and a simulated time that
/// stands in for the last two. All functions are safe from any thread and return at once.

#include <sys/time.h>

#include <cstdint>
#include <ctime>

namespace threadfunc {

/// Sets the zero of `monotonicMilliseconds` if nothing has set it yet. Returns 0, or -1 when the monotonic clock
/// cannot be read.
int startMonotonicClock();

/// Milliseconds of the monotonic clock since the first call of this or of `startMonotonicClock`. Wraps after 24.8 days
/// from 2147483647 to -2147483648: compare two readings by their difference.
std::int32_t monotonicMilliseconds();

/// The reading of `monotonicMilliseconds` at `now` when its zero is `base`: whole seconds, plus the difference of the
/// nanoseconds cut towards zero.
std::int32_t millisecondsSince(const timespec& base, const timespec& now);

/// Seconds since the program started, with microsecond resolution. In simulated time it is the simulated wall-clock
/// time less the moment of the start on the monotonic clock: of use for differences only.
double secondsSinceStart();

/// Time of day (since 1970, UTC): the simulated time when there is one, else the system's.
timeval wallClockNow();

/// `wallClockNow` in whole seconds, as `time` counts them: it begins a second up to some milliseconds later.
std::time_t wallClockSeconds();

/// Moves simulated time by `seconds` (negative: back), starting from the system's time at the first call. From then on
/// all clocks of the kit but `monotonicMilliseconds` stand still between two calls, for the rest of the process.
/// Returns the new time in whole seconds since 1970. See `addSeconds` for the range. For one controlling thread.
std::time_t advanceSimulatedTime(double seconds);

}  // namespace threadfunc
