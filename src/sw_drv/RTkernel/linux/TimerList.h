#pragma once
/// The list of armed timers, apart from threads and clocks.
///
/// Times are readings of `monotonicMilliseconds`, which wraps: two of them are compared by their difference, right as
/// long as they lie less than 2^31 ms apart. `kLongestDelayMs` leaves a day of that for a timer thread that is late.

#include <cstdint>
#include <list>

namespace threadfunc {

class TTimerBase;

/// A timer's place in the list.
struct TimerEntry {
    TTimerBase* owner;  ///< null once the timer is being destroyed
    std::int32_t due;   ///< when it expires
};

/// The longest time from now that a timer can be armed for: 23.8 days.
inline constexpr std::int32_t kLongestDelayMs = INT32_MAX - 24 * 60 * 60 * 1000;

/// The longest that the timer thread sleeps, which is also its sleep with no timer armed.
inline constexpr std::int32_t kIdleTimeoutMs = 200;

/// The time `ms` after `now`; negative `ms` count as 0, those above `kLongestDelayMs` as that.
std::int32_t dueTime(std::int32_t now, std::int32_t ms);

/// Milliseconds from `now` until `due`; negative when that has passed.
std::int32_t timeUntil(std::int32_t due, std::int32_t now);

/// Borrows entries and keeps them in ascending order of due time. The caller locks.
class TimerList {
public:
    /// Puts `entry`, which is not listed, before the first entry that is due at the same time or later: of two timers
    /// due at once the younger goes first. Returns true when it went to the front.
    bool insert(TimerEntry& entry);

    /// Takes `entry` out, if it is listed.
    void remove(TimerEntry& entry);

    /// Takes out all entries that are due at `now`, in order.
    std::list<TimerEntry*> popDue(std::int32_t now);

    /// How long the timer thread sleeps from `now`: until the first entry is due, 0 to `kIdleTimeoutMs`.
    std::int32_t nextTimeoutMs(std::int32_t now) const;

private:
    std::list<TimerEntry*> entries;
};

}  // namespace threadfunc
