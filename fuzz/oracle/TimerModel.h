#pragma once
/// What timers have to do, said with plain lists and a clock of 64 bits.

#include <array>
#include <cstdint>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fuzz {

inline constexpr std::size_t kTimers = 4;
inline constexpr std::size_t kEventCapacity = 6;

/// Something that is done to one timer.
struct TimerOperation {
    enum Kind : unsigned {
        StartOnce,
        StartPeriodic,
        RestartOnce,
        RestartPeriodic,
        Stop,
        Trigger,
        SetInterval,
        SetValue,
        Renew,  ///< destroys it and makes another one with the number as interval
        React,  ///< from now on each expiry does something to some timer, which the number says (reactionOf)
        None,
    };
    Kind kind = None;
    std::size_t timer = 0;
    std::int32_t number = 0;
};

/// Takes 3 bytes off the input: the kind, the upper half of whose byte says which timer, and a number of 16 bits, which
/// may stand for a much larger one. For None it is by how much the clock moves, at most a day.
TimerOperation takeOperation(Input& input);

/// What the number of a React stands for: anything but a trigger or another reaction.
TimerOperation reactionOf(std::int32_t number);

class TimerModel {
public:
    explicit TimerModel(std::int64_t clock);

    void apply(const TimerOperation& operation);
    /// Moves the clock by so much, whatever the sign, a day at most. Then the timer thread looks at the list once: all
    /// that is due comes, in its order. Returns how long the thread sleeps then: what is armed meanwhile wakes it.
    std::int32_t pass(std::int32_t ms);
    std::int32_t interval(std::size_t timer) const { return timers[timer].interval; }
    /// False for a trigger that would destroy its own timer.
    bool allows(const TimerOperation& operation) const;

    std::int64_t now;
    std::vector<int> events;  ///< that the queue had room for
    std::uint32_t wakes = 0;  ///< of the timer thread

private:
    struct Timer {
        std::int32_t interval = 10;
        int value = 0;
        TimerOperation reaction{};
        bool armed = false, periodic = false;
        std::int64_t due = 0;
        std::uint64_t order = 0;  // of arming: of two that are due at once the younger goes first
        std::uint32_t stops = 0;  // that end the repeating of an expiry under way
    };

    void arm(std::size_t index, std::int32_t ms);
    void disarm(std::size_t index);
    void expire(std::size_t index);
    std::vector<std::size_t> listed() const;
    std::int32_t sleepMs() const;

    std::array<Timer, kTimers> timers;
    std::vector<std::size_t> pending;  // due, and not yet expired in this pass
    std::uint64_t armings = 0;
};

}  // namespace fuzz
