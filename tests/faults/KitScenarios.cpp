// Threads, locks, queues, timers and clocks with failing calls.

#include <atomic>
#include <csignal>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/faults/Injection.h"
#include "tests/faults/Scenarios.h"

namespace faults {

namespace {

constexpr int kValues = 20;

std::uint32_t produce(void* queue) {
    auto& values = *static_cast<threadfunc::queue_template<int>*>(queue);
    for (int i = 0; i < kValues; ++i) values.put(i);
    return 5;
}

}  // namespace

void clocksTellTheTime() {
    using namespace threadfunc;
    const Stopwatch watch(true);
    const std::int32_t before = monotonicMilliseconds();
    sleep(1);
    must(monotonicMilliseconds() >= before, "the clock goes back");
    must(processName().size() <= 15, "processName");
    done(!processName().empty(), "no name");
    done(currentMemoryUse() > 0, "currentMemoryUse");
    done(peakMemoryUse() > 0, "peakMemoryUse");
    must(wallClockNow().tv_sec > 1000000000, "wallClockNow");
}

void threadsAndQueuesDeliver() {
    using namespace threadfunc;
    queue_template<int> values(3);
    mutex guard;
    semaphore units(1);
    guard.lock();
    guard.unlock();
    units.wait();
    units.post();
    for (int round = 0; round < 3; ++round) {
        const pthread_t producer = ThreadCreate(20, produce, &values, 0, "tests", round);
        if (!done(producer != 0, "ThreadCreate")) continue;
        for (int i = 0; i < kValues; ++i) must(values.get() == i, "the order of the values");
        must(threadJoin(producer) == 5, "threadJoin");
        int value = 0;
        must(!values.tryGet(value), "a value too many");
        must(values.space() == 3 && values.size() == 0, "the queue lost a place");
    }
}

void timersExpire() {
    using namespace threadfunc;
    queue_template<int> values(10);
    {
        timer_template<int> once(1, &values, 1);
        timer_template<int> often(2, &values, 2);
        once.restartOnce();
        often.startPeriodic(2);
        // A failed call may have cost the thread that serves them; otherwise they come, however slow the machine is.
        for (int i = 0; values.size() < 4 && i < (aCallFailed() ? 20 : 10000); ++i) pauseOneMillisecond();
        often.stop();
        done(values.size() >= 4, "the timers stand still");
        once.trigger();
    }
    int value = 0;
    while (values.tryGet(value)) must(value == 1 || value == 2, "a value that nobody sent");
}

}  // namespace faults
