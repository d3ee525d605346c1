/// In which order queues and timers lock, count and wake: who shares them counts on it.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "sw_drv/RTkernel/linux/MessageQueue.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::kNever;
using threadfunc::queue_template;
using threadfunc::timer_template;

namespace {

using Queue = queue_template<int>;

struct QueueRow {
    const char* why;
    int held;
    std::function<void(Queue&)> operation;
    const char* steps;
};
class QueueSteps : public testing::TestWithParam<QueueRow> {};
// A unit is taken before the sequence changes and given after. The try operations give it with the guard held.
TEST_P(QueueSteps, ComeInTheirOrder) {
    Queue queue(2);
    for (int i = 0; i < GetParam().held; ++i) queue.put(i);
    const injected::Steps steps;
    GetParam().operation(queue);
    EXPECT_EQ(steps.taken(), GetParam().steps);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, QueueSteps,
    testing::Values(QueueRow{"put", 1, [](Queue& queue) { queue.put(1); }, "wLUp"},
                    QueueRow{"get", 1, [](Queue& queue) { queue.get(); }, "wLUp"},
                    QueueRow{"tryPut", 1, [](Queue& queue) { EXPECT_TRUE(queue.tryPut(1)); }, "LtpU"},
                    QueueRow{"tryPutIntoAFullOne", 2, [](Queue& queue) { EXPECT_FALSE(queue.tryPut(1)); }, "LtU"},
                    QueueRow{"tryGet", 1,
                             [](Queue& queue) {
                                 int value = 0;
                                 EXPECT_TRUE(queue.tryGet(value));
                             },
                             "LtpU"},
                    QueueRow{"tryGetFromAnEmptyOne", 0,
                             [](Queue& queue) {
                                 int value = 0;
                                 EXPECT_FALSE(queue.tryGet(value));
                             },
                             "LtU"},
                    QueueRow{"sizeAndSpaceLockNothing", 1,
                             [](Queue& queue) { EXPECT_EQ(queue.size() + queue.space(), 2); }, ""}),
    [](const auto& row) { return std::string(row.param.why); });

using Timer = timer_template<int>;

struct TimerRow {
    const char* why;
    std::function<void(Timer&)> before;
    std::function<void(Timer&)> operation;
    const char* steps;
};
class TimerSteps : public testing::TestWithParam<TimerRow> {
protected:
    TimerSteps() { kittest::awaitTimerPass(); }  // what the timer thread does at its start is over
};
// The clock is read before the timers' lock is taken; the pipe is written and the queue used after it is free again.
TEST_P(TimerSteps, ComeInTheirOrder) {
    Queue queue(1);
    Timer earliest(kNever, &queue, 1);
    Timer timer(kNever, &queue, 2);
    earliest.restartOnce();
    GetParam().before(timer);
    const injected::Steps steps;
    GetParam().operation(timer);
    EXPECT_EQ(steps.taken(), GetParam().steps);
}
void nothing(Timer& /*timer*/) {}
INSTANTIATE_TEST_SUITE_P(
    Rows, TimerSteps,
    testing::Values(TimerRow{"startToTheFront", nothing, [](Timer& timer) { timer.startOnce(kNever / 2); }, "cLUW"},
                    TimerRow{"startBehindAnother", nothing, [](Timer& timer) { timer.startPeriodic(kNever * 2); },
                             "cLU"},
                    TimerRow{"restart", [](Timer& timer) { timer.setInterval(kNever * 2); },
                             [](Timer& timer) { timer.restartOnce(); }, "LUcLU"},
                    TimerRow{"stop", nothing, [](Timer& timer) { timer.stop(); }, "LU"},
                    TimerRow{"setInterval", nothing, [](Timer& timer) { timer.setInterval(1); }, "LU"},
                    TimerRow{"interval", nothing, [](Timer& timer) { EXPECT_EQ(timer.interval(), kNever); }, "LU"},
                    TimerRow{"setValue", nothing, [](Timer& timer) { timer.setValue(3); }, "LU"},
                    TimerRow{"expire", nothing, [](Timer& timer) { timer.expire(); }, "LULtpU"},
                    TimerRow{"expireIntoAFullQueue", [](Timer& timer) { timer.expire(); },
                             [](Timer& timer) { timer.expire(); }, "LULtU"},
                    TimerRow{"trigger", nothing, [](Timer& timer) { timer.trigger(); }, "LULULtpUcLU"},
                    TimerRow{"triggerOfAPeriodicOne", [](Timer& timer) { timer.startPeriodic(kNever / 2); },
                             [](Timer& timer) { timer.trigger(); }, "LULULtpUcLUW"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(TimerStepsOfExpire, WithoutAQueueLockTheTimersAlone) {
    kittest::awaitTimerPass();
    Timer timer(kNever, nullptr, 1);
    const injected::Steps steps;
    timer.expire();
    EXPECT_EQ(steps.taken(), "LU");
}

}  // namespace
