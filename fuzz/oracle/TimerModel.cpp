#include "fuzz/oracle/TimerModel.h"

#include <algorithm>
#include <cstdlib>

namespace fuzz {

namespace {
constexpr std::int64_t kDay = 86400000;
constexpr std::int64_t kLongestDelay = 2147483647 - kDay;
}  // namespace

TimerOperation takeOperation(Input& input) {
    const std::uint8_t byte = input.byte();
    const std::int32_t half = input.number<std::int16_t>();
    if (byte % 16 > TimerOperation::None) return {TimerOperation::None, 0, half * 2600};
    const bool wide = half % 16 == 15 && byte % 16 != TimerOperation::None;
    return {static_cast<TimerOperation::Kind>(byte % 16), byte / 16 % kTimers, wide ? half * 65521 : half};
}

TimerOperation reactionOf(std::int32_t number) {
    using Op = TimerOperation;
    constexpr std::array kKinds{Op::StartOnce,       Op::StartPeriodic, Op::RestartOnce,
                                Op::RestartPeriodic, Op::Stop,          Op::SetInterval,
                                Op::SetValue,        Op::Renew,         Op::None};
    const auto bits = static_cast<std::uint32_t>(number);
    return {kKinds[bits % kKinds.size()], bits / 16 % kTimers, static_cast<std::int32_t>(bits / 64 % 128)};
}

TimerModel::TimerModel(std::int64_t clock) : now(clock) {}

bool TimerModel::allows(const TimerOperation& operation) const {
    const TimerOperation& reaction = timers[operation.timer].reaction;
    return operation.kind != TimerOperation::Trigger || reaction.kind != TimerOperation::Renew ||
           reaction.timer != operation.timer;
}

void TimerModel::apply(const TimerOperation& operation) {
    const std::size_t index = operation.timer;
    Timer& timer = timers[index];
    switch (operation.kind) {
        case TimerOperation::StartOnce:
        case TimerOperation::StartPeriodic:
            timer.periodic = operation.kind == TimerOperation::StartPeriodic;
            return arm(index, operation.number);
        case TimerOperation::RestartOnce:
        case TimerOperation::RestartPeriodic:
            timer.periodic = operation.kind == TimerOperation::RestartPeriodic;
            return arm(index, timer.interval);
        case TimerOperation::Stop:
            return disarm(index);
        case TimerOperation::Trigger:
            return expire(index);
        case TimerOperation::SetInterval:
            timer.interval = operation.number;
            return;
        case TimerOperation::SetValue:
            timer.value = operation.number;
            return;
        case TimerOperation::Renew: {
            disarm(index);
            const std::uint32_t stops = timer.stops;
            timer = Timer{};
            timer.interval = operation.number;
            timer.stops = stops;
            return;
        }
        case TimerOperation::React:
            timer.reaction = reactionOf(operation.number);
            return;
        case TimerOperation::None:
            return;
    }
}

void TimerModel::arm(std::size_t index, std::int32_t ms) {
    std::erase(pending, index);
    Timer& timer = timers[index];
    timer.armed = false;
    timer.interval = ms;
    timer.due = now + std::clamp<std::int64_t>(ms, 0, kLongestDelay);
    timer.order = ++armings;
    const auto front = listed();
    if (front.empty() || timers[front.front()].due >= timer.due) ++wakes;
    timer.armed = true;
}

void TimerModel::disarm(std::size_t index) {
    std::erase(pending, index);
    timers[index].armed = false;
    ++timers[index].stops;
}

/// Those that are armed, in the order in which they will come.
std::vector<std::size_t> TimerModel::listed() const {
    std::vector<std::size_t> order;
    for (std::size_t index = 0; index < kTimers; ++index)
        if (timers[index].armed) order.push_back(index);
    std::sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
        const Timer &left = timers[a], &right = timers[b];
        return left.due != right.due ? left.due < right.due : left.order > right.order;
    });
    return order;
}

void TimerModel::expire(std::size_t index) {
    const Timer& timer = timers[index];
    const std::uint32_t stops = timer.stops;
    if (events.size() < kEventCapacity) events.push_back(timer.value);
    const TimerOperation reaction = timer.reaction;  // a copy: a timer that renews itself loses its own
    apply(reaction);
    if (timer.periodic && timer.stops == stops) arm(index, timer.interval);
}

std::int32_t TimerModel::pass(std::int32_t ms) {
    now += std::min(std::abs(std::int64_t{ms}), kDay);
    pending = listed();
    std::erase_if(pending, [this](std::size_t index) { return timers[index].due > now; });
    for (const std::size_t index : pending) timers[index].armed = false;
    const std::int32_t sleep = sleepMs();
    while (!pending.empty()) {
        const std::size_t index = pending.front();
        pending.erase(pending.begin());
        expire(index);
    }
    return sleep;
}

std::int32_t TimerModel::sleepMs() const {
    const auto front = listed();
    if (front.empty()) return 200;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(timers[front.front()].due - now, 0, 200));
}

}  // namespace fuzz
