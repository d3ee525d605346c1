#pragma once
/// The kit's timers without their thread: the target itself runs its passes, one at a time, on a clock that only the
/// target moves. The linker leads clock, pipe and thread start here (--wrap).

#include <array>
#include <optional>
#include <vector>

#include "fuzz/oracle/TimerModel.h"
#include "sw_drv/RTkernel/linux/Timer.h"

namespace fuzz {

/// A few timers that fill one small queue. One object at a time.
class SteppedTimers {
public:
    explicit SteppedTimers(std::int32_t clock);
    ~SteppedTimers();
    SteppedTimers(const SteppedTimers&) = delete;
    SteppedTimers& operator=(const SteppedTimers&) = delete;

    void apply(const TimerOperation& operation);
    /// Sets the clock and lets the timer thread look once. Returns how long it would sleep then, in milliseconds.
    std::int32_t pass(std::int32_t clock);
    std::int32_t interval(std::size_t timer) const { return timers[timer]->interval(); }
    /// What came into the queue since the last call.
    std::vector<int> takeEvents();
    /// How often the timer thread was woken.
    static std::uint32_t wakes();

private:
    class Reacting : public threadfunc::timer_template<int> {
    public:
        Reacting(SteppedTimers& owning, std::int32_t interval)
            : timer_template(interval, &owning.events, 0), owner(owning) {}
        ~Reacting() override { retire(); }
        Reacting(const Reacting&) = delete;
        Reacting& operator=(const Reacting&) = delete;

        void expire() override;
        TimerOperation reaction;

    private:
        SteppedTimers& owner;
    };

    threadfunc::queue_template<int> events{kEventCapacity};
    std::array<std::optional<Reacting>, kTimers> timers;
};

}  // namespace fuzz
