// Threads, locks, queues, timers and clocks with failing calls.

#include <atomic>
#include <csignal>

#include "sw_drv/RTkernel/linux/threadfunc.h"
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

bool clocksTellTheTime() {
    using namespace threadfunc;
    const Stopwatch watch(true);
    const std::int32_t before = monotonicMilliseconds();
    sleep(1);
    bool right = monotonicMilliseconds() >= before || wrong("the clock goes back");
    if (processName().size() > 15) right = wrong("processName");
    currentMemoryUse();
    peakMemoryUse();
    if (wallClockNow().tv_sec < 1000000000) right = wrong("wallClockNow");
    return right;
}

bool threadsAndQueuesDeliver() {
    using namespace threadfunc;
    queue_template<int> values(3);
    mutex guard;
    semaphore units(1);
    bool right = true;
    guard.lock();
    guard.unlock();
    units.wait();
    units.post();
    for (int round = 0; round < 3; ++round) {
        const pthread_t producer = ThreadCreate(20, produce, &values, 0, "tests", round);
        if (producer == 0) continue;
        for (int i = 0; i < kValues; ++i) values.get();
        if (threadJoin(producer) != 5) right = wrong("threadJoin");
        int value = 0;
        if (values.tryGet(value)) right = wrong("a value too many");
        if (values.space() != 3 || values.size() != 0) right = wrong("the queue lost a place");
    }
    return right;
}

bool timersExpire() {
    using namespace threadfunc;
    queue_template<int> values(10);
    bool right = true;
    {
        timer_template<int> once(1, &values, 1);
        timer_template<int> often(2, &values, 2);
        once.restartOnce();
        often.startPeriodic(2);
        for (int i = 0; i < 20 && values.size() < 4; ++i) sleep(1);
        often.stop();
        once.trigger();
    }
    int value = 0;
    while (values.tryGet(value))
        if (value != 1 && value != 2) right = wrong("a value that nobody sent");
    return right;
}

}  // namespace faults
