#pragma once
/// Timers whose expiries a test can see and hold up.

#include <atomic>
#include <functional>
#include <utility>

#include "sw_drv/RTkernel/linux/Semaphore.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/support/Process.h"

namespace kittest {

/// Milliseconds: longer than any test waits.
inline constexpr int kNever = 60'000;

/// Counts its expiries and runs what the test gives it.
class ProbeTimer : public threadfunc::TTimerBase {
public:
    explicit ProbeTimer(int intervalMs = 0, std::function<void()> onExpiry = nullptr)
        : TTimerBase(intervalMs), action(std::move(onExpiry)) {}
    ~ProbeTimer() override { retire(); }

    void expire() override {
        if (action) action();
        ++expiries;
    }

    bool expiredTimes(int count) const {
        return testsupport::waitFor([this, count] { return expiries >= count; });
    }

    std::atomic<int> expiries{0};

private:
    std::function<void()> action;
};

/// Keeps the timer thread inside an expiry from construction until `release`.
class HeldTimerThread {
public:
    HeldTimerThread()
        : timer(0, [this] {
              inside.post();
              go.wait();
          }) {
        timer.startOnce(0);
        inside.wait();
    }
    ~HeldTimerThread() { release(); }
    void release() {
        if (!released.exchange(true)) go.post();
    }

private:
    std::atomic<bool> released{false};
    threadfunc::semaphore inside{0};
    threadfunc::semaphore go{0};
    ProbeTimer timer;
};

/// Returns when the timer thread has begun and ended an expiry after this call: all that was due before has come.
inline void awaitTimerPass() {
    for (int i = 0; i < 2; ++i) {
        ProbeTimer pass;
        pass.startOnce(0);
        static_cast<void>(pass.expiredTimes(1));
    }
}

}  // namespace kittest
