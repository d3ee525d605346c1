#include "sw_drv/RTkernel/linux/Timer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::awaitTimerPass;
using kittest::HeldTimerThread;
using kittest::kNever;
using kittest::ProbeTimer;
using std::chrono::milliseconds;
using testsupport::CapturedOutput;
using threadfunc::queue_template;
using threadfunc::timer_template;
using Clock = std::chrono::steady_clock;

namespace {

static_assert(!std::is_copy_constructible_v<timer_template<int>>);
static_assert(std::has_virtual_destructor_v<threadfunc::TTimerBase>);

// The millisecond clock truncates both ends of an interval.
constexpr milliseconds kEarly{2};

milliseconds since(Clock::time_point start) { return std::chrono::duration_cast<milliseconds>(Clock::now() - start); }

// For what must be done before a timer comes: a busy machine may hold it up, then it is done again.
template <typename Steps>
void within(milliseconds limit, const Steps& steps) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const auto start = Clock::now();
        steps();
        if (since(start) < limit - kEarly) return;
    }
    FAIL() << "the machine is too slow";
}

// --- When it expires ---------------------------------------------------------------------------------------------

TEST(Timer, IsNotArmedByItsConstruction) {
    ProbeTimer timer(1);
    threadfunc::sleep(20);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 0);
}

TEST(Timer, StartedOnceExpiresOnceAfterItsTime) {
    queue_template<int> queue(10);
    timer_template<int> timer(0, &queue, 7);
    const auto start = Clock::now();
    timer.startOnce(50);
    EXPECT_EQ(queue.get(), 7);
    EXPECT_GE(since(start), milliseconds(50) - kEarly);
    threadfunc::sleep(120);
    awaitTimerPass();
    EXPECT_EQ(queue.size(), 0);
}

TEST(Timer, StartedPeriodicExpiresAgainAndAgain) {
    queue_template<int> queue(10);
    timer_template<int> timer(0, &queue, 7);
    const auto start = Clock::now();
    timer.startPeriodic(20);
    for (int i = 1; i <= 5; ++i) {
        EXPECT_EQ(queue.get(), 7);
        EXPECT_GE(since(start), (milliseconds(20) - kEarly) * i);
    }
    timer.stop();
}

// Lateness adds up: the next expiry is counted from the end of the last one, not from when that was due.
TEST(Timer, PeriodIsCountedFromTheEndOfTheExpiry) {
    ProbeTimer timer(0, [] { threadfunc::sleep(40); });
    const auto start = Clock::now();
    timer.startPeriodic(30);
    EXPECT_TRUE(timer.expiredTimes(3));
    EXPECT_GE(since(start), (milliseconds(40) + milliseconds(30) - kEarly) * 3);
}

TEST(Timer, ArmedForZeroComesAlmostAtOnce) {
    queue_template<int> queue(1);
    timer_template<int> timer(0, &queue, 7);
    ProbeTimer far;
    far.startOnce(kNever);
    std::vector<milliseconds> waits;
    for (int i = 0; i < 5; ++i) {
        const auto start = Clock::now();
        timer.startOnce(0);
        queue.get();
        waits.push_back(since(start));
    }
    EXPECT_LT(*std::min_element(waits.begin(), waits.end()), milliseconds(100));  // not only at the 200 ms pass
}

struct OddTimeRow {
    const char* why;
    int ms;
};
class TimerOddTime : public testing::TestWithParam<OddTimeRow> {};
TEST_P(TimerOddTime, OfNegativeComesAtOnceAndIsKeptAsInterval) {
    ProbeTimer timer;
    timer.startOnce(GetParam().ms);
    EXPECT_TRUE(timer.expiredTimes(1));
    EXPECT_EQ(timer.interval(), GetParam().ms);
}
INSTANTIATE_TEST_SUITE_P(Rows, TimerOddTime, testing::Values(OddTimeRow{"minusOne", -1}, OddTimeRow{"least", INT_MIN}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Timer, OfTheLargestTimeDoesNotComeNow) {
    ProbeTimer timer;
    ProbeTimer other;
    timer.startPeriodic(INT_MAX);
    other.startOnce(1);
    EXPECT_TRUE(other.expiredTimes(1));
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 0);
    EXPECT_EQ(timer.interval(), INT_MAX);
}

TEST(Timer, TwoDueAtOnceExpireInReverseOrderOfArming) {
    queue_template<int> queue(10);
    timer_template<int> first(0, &queue, 1);
    timer_template<int> second(0, &queue, 2);
    timer_template<int> third(0, &queue, 3);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::int32_t before = threadfunc::monotonicMilliseconds();
        first.startOnce(30);
        second.startOnce(30);
        third.startOnce(30);
        if (threadfunc::monotonicMilliseconds() != before) continue;  // not all due at the same time
        EXPECT_EQ(queue.get(), 3);
        EXPECT_EQ(queue.get(), 2);
        EXPECT_EQ(queue.get(), 1);
        return;
    }
    GTEST_SKIP() << "the machine is too slow to arm three timers in a millisecond";
}

TEST(Timer, EarlierOneWakesTheThreadThatSleepsForALaterOne) {
    ProbeTimer later;
    ProbeTimer earlier;
    within(milliseconds(150), [&] {
        earlier.expiries = 0;
        later.startOnce(150);
        threadfunc::sleep(5);  // the thread sleeps for it now
        earlier.startOnce(10);
        EXPECT_TRUE(earlier.expiredTimes(1));
    });
    EXPECT_TRUE(later.expiredTimes(1));
}

// --- Starting again, stopping, intervals ----------------------------------------------------------------------------

TEST(Timer, RestartOfARunningOneMovesItAndItExpiresOnce) {
    ProbeTimer timer;
    Clock::time_point start;
    within(milliseconds(60), [&] {
        timer.expiries = 0;
        start = Clock::now();
        timer.startOnce(60);
        threadfunc::sleep(30);
        timer.restartOnce();
    });
    EXPECT_TRUE(timer.expiredTimes(1));
    EXPECT_GE(since(start), milliseconds(90) - kEarly);
    threadfunc::sleep(80);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 1);
}

TEST(Timer, RestartUsesTheTimeOfTheLastStart) {
    ProbeTimer timer(10);
    EXPECT_EQ(timer.interval(), 10);
    timer.startOnce(5000);
    EXPECT_EQ(timer.interval(), 5000);
    timer.restartOnce();
    EXPECT_EQ(timer.interval(), 5000);
    threadfunc::sleep(40);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 0);  // not after the 10 ms of its construction
    timer.startPeriodic(6000);
    EXPECT_EQ(timer.interval(), 6000);
}

TEST(Timer, RestartsUseTheIntervalOfTheConstruction) {
    ProbeTimer once(10);
    ProbeTimer periodic(10);
    once.restartOnce();
    periodic.restartPeriodic();
    EXPECT_TRUE(periodic.expiredTimes(4));
    EXPECT_TRUE(once.expiredTimes(1));
    periodic.stop();
    EXPECT_EQ(once.expiries, 1);
}

TEST(Timer, StartDecidesBetweenOnceAndPeriodic) {
    ProbeTimer timer;
    timer.startPeriodic(5);
    EXPECT_TRUE(timer.expiredTimes(2));
    timer.startOnce(5);
    awaitTimerPass();
    const int before = timer.expiries;
    threadfunc::sleep(60);
    awaitTimerPass();
    EXPECT_LE(timer.expiries, before + 1);
    timer.restartPeriodic();
    EXPECT_TRUE(timer.expiredTimes(before + 4));
    timer.restartOnce();
    awaitTimerPass();
    const int again = timer.expiries;
    threadfunc::sleep(60);
    awaitTimerPass();
    EXPECT_LE(timer.expiries, again + 1);
}

TEST(Timer, SettingTheIntervalNeitherArmsNorDisarms) {
    ProbeTimer idle(0);
    idle.setInterval(1);
    ProbeTimer running(0);
    running.startOnce(40);
    running.setInterval(kNever);
    EXPECT_EQ(running.interval(), kNever);
    EXPECT_TRUE(running.expiredTimes(1));
    EXPECT_EQ(idle.expiries, 0);
    EXPECT_EQ(idle.interval(), 1);
}

TEST(Timer, SettingTheIntervalChangesTheNextPeriod) {
    ProbeTimer timer;
    within(milliseconds(20), [&timer] {
        timer.stop();
        timer.expiries = 0;
        timer.startPeriodic(20);
        timer.setInterval(kNever);
    });
    EXPECT_TRUE(timer.expiredTimes(1));
    threadfunc::sleep(60);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 1);
}

TEST(Timer, StoppedOneDoesNotExpireAndKeepsItsFields) {
    ProbeTimer timer;
    within(milliseconds(30), [&timer] {
        timer.expiries = 0;
        timer.startOnce(30);
        timer.stop();
    });
    threadfunc::sleep(60);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 0);
    EXPECT_EQ(timer.interval(), 30);
}

TEST(Timer, StoppingOneThatIsNotArmedDoesNothing) {
    ProbeTimer never;
    ProbeTimer expired;
    expired.startOnce(0);
    EXPECT_TRUE(expired.expiredTimes(1));
    never.stop();
    expired.stop();
    expired.stop();
    expired.startOnce(0);
    EXPECT_TRUE(expired.expiredTimes(2));
}

// --- Trigger -----------------------------------------------------------------------------------------------------

TEST(TimerTrigger, ExpiresInTheCallingThreadAtOnce) {
    int thread = 0;
    ProbeTimer timer(5, [&thread] { thread = threadfunc::threadId(); });
    timer.trigger();
    EXPECT_EQ(thread, threadfunc::threadId());
    EXPECT_EQ(timer.expiries, 1);
    threadfunc::sleep(40);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 1);  // one that is not periodic is not armed
}

TEST(TimerTrigger, LeavesAnArmedOneThatIsNotPeriodicAlone) {
    ProbeTimer timer;
    within(milliseconds(30), [&timer] {
        timer.stop();
        timer.expiries = 0;
        timer.startOnce(30);
        timer.trigger();
    });
    EXPECT_GE(timer.expiries, 1);
    EXPECT_TRUE(timer.expiredTimes(2));
}

TEST(TimerTrigger, ArmsAPeriodicOneFromNow) {
    ProbeTimer timer;
    Clock::time_point start;
    within(milliseconds(60), [&] {
        timer.stop();
        timer.expiries = 0;
        start = Clock::now();
        timer.startPeriodic(60);
        threadfunc::sleep(30);
        timer.trigger();
    });
    EXPECT_TRUE(timer.expiredTimes(2));
    EXPECT_GE(since(start), milliseconds(90) - kEarly);
    timer.stop();
}

TEST(TimerTrigger, ArmsAStoppedPeriodicOneAgain) {
    ProbeTimer timer;
    timer.startPeriodic(10);
    timer.stop();
    const int before = timer.expiries;
    timer.trigger();
    EXPECT_TRUE(timer.expiredTimes(before + 3));
    timer.stop();
}

TEST(TimerTrigger, IsNotFollowedByAnExpiryWhenItsOwnExpiryStopsTheTimer) {
    ProbeTimer* self = nullptr;
    ProbeTimer timer(0, [&self] { self->stop(); });
    self = &timer;
    within(milliseconds(20), [&timer] {
        timer.expiries = 0;
        timer.startPeriodic(20);
        timer.trigger();
    });
    threadfunc::sleep(50);
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 1);
}

// --- What an expiry changes --------------------------------------------------------------------------------------

struct ChangeRow {
    const char* why;
    void (*onExpiry)(ProbeTimer&);
};
class TimerChangedByItsExpiry : public testing::TestWithParam<ChangeRow> {
protected:
    int expiriesAfter(void (*start)(ProbeTimer&)) {
        start(changed);
        EXPECT_TRUE(changed.expiredTimes(1));
        threadfunc::sleep(30);
        awaitTimerPass();
        return changed.expiries;
    }

private:
    ProbeTimer changed{0, [this] { GetParam().onExpiry(changed); }};
};
// Whether and when it comes again is looked up after the expiry.
TEST_P(TimerChangedByItsExpiry, GoesByTheChange) {
    EXPECT_EQ(expiriesAfter([](ProbeTimer& timer) { timer.startPeriodic(5); }), 1);
}
TEST_P(TimerChangedByItsExpiry, GoesByTheChangeWhenTriggeredToo) {
    EXPECT_EQ(expiriesAfter([](ProbeTimer& timer) {
                  timer.startPeriodic(kNever);
                  timer.setInterval(5);
                  timer.trigger();
              }),
              1);
}
INSTANTIATE_TEST_SUITE_P(Rows, TimerChangedByItsExpiry,
                         testing::Values(ChangeRow{"longerInterval",
                                                   [](ProbeTimer& timer) { timer.setInterval(kNever); }},
                                         ChangeRow{"noLongerPeriodic",
                                                   [](ProbeTimer& timer) {
                                                       timer.startOnce(kNever);
                                                       timer.setInterval(5);
                                                   }}),
                         [](const auto& row) { return std::string(row.param.why); });

// --- Queue and value ---------------------------------------------------------------------------------------------

TEST(TimerQueue, ThatIsFullLosesTheEventAndTheTimerKeepsRunning) {
    class CountedTimer : public timer_template<int> {
    public:
        using timer_template::timer_template;
        ~CountedTimer() override { retire(); }
        void expire() override {
            timer_template::expire();
            ++expiries;
        }
        std::atomic<int> expiries{0};
    };
    queue_template<int> queue(10);
    CountedTimer timer(0, &queue, 7);
    std::string printed;
    bool expired = false;
    {
        const CapturedOutput output(STDOUT_FILENO);
        const CapturedOutput errors(STDERR_FILENO);
        timer.startPeriodic(1);
        expired = testsupport::waitFor([&] { return timer.expiries >= 15; });
        printed = output.text() + errors.text();
    }
    EXPECT_TRUE(expired);
    EXPECT_EQ(printed, "");  // lost without a word
    EXPECT_EQ(queue.size(), 10);
    EXPECT_EQ(queue.get(), 7);  // room again
    EXPECT_TRUE(testsupport::waitFor([&] { return queue.size() == 10; }));
    timer.stop();
}

TEST(TimerQueue, ThatIsMissingMakesExpiriesDoNothing) {
    timer_template<int> timer(0, nullptr, 7);
    timer.startPeriodic(1);
    timer.trigger();
    awaitTimerPass();
    timer.stop();
}

TEST(TimerQueue, GetsTheValueThatWasSetLast) {
    queue_template<std::string> queue(10);
    timer_template<std::string> timer(kNever, &queue, "first");
    timer.trigger();
    timer.setValue("second");
    timer.trigger();
    timer.expire();
    EXPECT_EQ(queue.get(), "first");
    EXPECT_EQ(queue.get(), "second");
    EXPECT_EQ(queue.get(), "second");
}

TEST(TimerQueue, ValueMayChangeWhileTheTimerRuns) {
    queue_template<int> queue(1000);
    timer_template<int> timer(0, &queue, 0);
    timer.startPeriodic(0);
    for (int value = 1; value <= 1000; ++value) timer.setValue(value);
    EXPECT_TRUE(testsupport::waitFor([&] { return queue.size() > 0; }));
    timer.stop();
    int last = 0;
    for (int value = 0; queue.tryGet(value); last = value) EXPECT_GE(value, last);
}

// --- Expiries in flight ------------------------------------------------------------------------------------------

TEST(TimerThread, IsOneForAllTimersAndHoldsNoLockDuringAnExpiry) {
    std::atomic<int> firstThread{0};
    std::atomic<int> secondThread{0};
    std::atomic<bool> lockFree{false};
    ProbeTimer first(0, [&] {
        firstThread = threadfunc::threadId();
        if (threadfunc::timerMutex().tryLock()) {
            lockFree = true;
            threadfunc::timerMutex().unlock();
        }
    });
    ProbeTimer second(0, [&] { secondThread = threadfunc::threadId(); });
    first.startOnce(0);
    EXPECT_TRUE(first.expiredTimes(1));
    second.startOnce(0);
    EXPECT_TRUE(second.expiredTimes(1));
    EXPECT_EQ(firstThread, secondThread);
    EXPECT_NE(firstThread, threadfunc::threadId());
    EXPECT_TRUE(lockFree);
}

// stop once came between the expiry and the arming for the next period, and the timer ran on.
TEST(TimerInFlight, StopWaitsForTheExpiryAndIsNotLostAgainstTheNextPeriod) {
    for (int round = 0; round < 20; ++round) {
        threadfunc::semaphore inside(0);
        std::atomic<bool> ended{false};
        ProbeTimer timer(0, [&] {
            ended = false;
            inside.post();
            threadfunc::sleep(5);
            ended = true;
        });
        timer.startPeriodic(0);
        inside.wait();
        timer.stop();
        EXPECT_TRUE(ended);
        const int before = timer.expiries;
        awaitTimerPass();
        EXPECT_EQ(timer.expiries, before);
    }
}

TEST(TimerInFlight, StopFromWithinTheExpiryReturnsAndStops) {
    ProbeTimer* self = nullptr;
    ProbeTimer timer(0, [&self] { self->stop(); });
    self = &timer;
    timer.startPeriodic(0);
    EXPECT_TRUE(timer.expiredTimes(1));
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 1);
}

TEST(TimerInFlight, StartFromWithinTheExpiryArmsOnce) {
    ProbeTimer* self = nullptr;
    std::atomic<int> starts{0};
    ProbeTimer timer(0, [&] {
        if (++starts < 5) self->startOnce(0);
    });
    self = &timer;
    timer.startPeriodic(0);
    EXPECT_TRUE(timer.expiredTimes(5));
    awaitTimerPass();
    EXPECT_EQ(timer.expiries, 5);
}

TEST(TimerInFlight, RestartedAfterAStopDuringTheExpiryRunsAgain) {
    threadfunc::semaphore inside(0);
    ProbeTimer timer(0, [&] { inside.post(); });
    timer.startPeriodic(5);
    inside.wait();
    timer.stop();
    timer.restartPeriodic();
    inside.wait();
    inside.wait();
    timer.stop();
}

// The expiry of a timer that another thread destroyed once ran on freed memory.
TEST(TimerInFlight, DestructionWaitsForTheExpiry) {
    for (int round = 0; round < 20; ++round) {
        threadfunc::semaphore inside(0);
        std::atomic<bool> ended{false};
        auto timer = std::make_unique<ProbeTimer>(0, [&] {
            inside.post();
            threadfunc::sleep(5);
            ended = true;
        });
        timer->startPeriodic(0);
        inside.wait();
        timer.reset();
        EXPECT_TRUE(ended);
    }
}

TEST(TimerInFlight, QueueTimerMayBeDestroyedAtAnyMoment) {
    queue_template<int> queue(10);
    for (int round = 0; round < 300; ++round) {
        timer_template<int> timer(0, &queue, round);
        timer.startPeriodic(0);
        if (round % 2 == 0) queue.get();
        int drained = 0;
        while (queue.tryGet(drained)) {
        }
    }
    awaitTimerPass();
    EXPECT_LE(queue.size(), 10);
}

TEST(TimerInFlight, MayDestroyItselfInItsExpiry) {
    static std::atomic<int> destroyed{0};
    class OneShot : public threadfunc::TTimerBase {
    public:
        OneShot() : TTimerBase(0) {}
        ~OneShot() override {
            retire();
            ++destroyed;
        }
        void expire() override { delete this; }
    };
    destroyed = 0;
    (new OneShot)->startOnce(0);
    (new OneShot)->startPeriodic(0);
    EXPECT_TRUE(testsupport::waitFor([] { return destroyed == 2; }));
    awaitTimerPass();
}

TEST(TimerDue, ButStoppedBeforeItsTurnDoesNotExpire) {
    HeldTimerThread held;
    ProbeTimer victim;
    ProbeTimer first(0, [&victim] { victim.stop(); });
    victim.startOnce(0);
    threadfunc::sleep(5);
    first.startOnce(0);  // due later, so the victim would go first: move the victim behind it
    victim.startOnce(1);
    threadfunc::sleep(10);
    held.release();
    EXPECT_TRUE(first.expiredTimes(1));
    awaitTimerPass();
    EXPECT_EQ(victim.expiries, 0);
}

TEST(TimerDue, ButStoppedByAnotherThreadDuringTheExpiryBeforeItDoesNotExpire) {
    threadfunc::semaphore inside(0);
    threadfunc::semaphore go(0);
    ProbeTimer victim;
    ProbeTimer first(0, [&] {
        inside.post();
        go.wait();
    });
    {
        HeldTimerThread held;
        first.startOnce(0);
        threadfunc::sleep(5);
        victim.startOnce(0);
        threadfunc::sleep(5);  // both are due now and collected together
    }
    inside.wait();
    victim.stop();
    go.post();
    EXPECT_TRUE(first.expiredTimes(1));
    awaitTimerPass();
    EXPECT_EQ(victim.expiries, 0);
}

TEST(TimerDue, ButDestroyedBeforeItsTurnIsNotTouched) {
    auto victim = std::make_unique<ProbeTimer>();
    ProbeTimer first(0, [&victim] { victim.reset(); });
    {
        HeldTimerThread held;
        first.startOnce(0);
        threadfunc::sleep(5);
        victim->startOnce(0);
        threadfunc::sleep(5);
    }
    EXPECT_TRUE(first.expiredTimes(1));
    awaitTimerPass();
    EXPECT_EQ(victim, nullptr);
}

TEST(TimerDue, ButStartedAgainBeforeItsTurnExpiresOnceAtTheNewTime) {
    ProbeTimer victim;
    ProbeTimer first(0, [&victim] { victim.startOnce(60); });
    Clock::time_point start;
    {
        HeldTimerThread held;
        first.startOnce(0);
        threadfunc::sleep(5);
        victim.startOnce(0);
        threadfunc::sleep(5);
        start = Clock::now();
    }
    EXPECT_TRUE(victim.expiredTimes(1));
    EXPECT_GE(since(start), milliseconds(60) - kEarly);
    threadfunc::sleep(80);
    awaitTimerPass();
    EXPECT_EQ(victim.expiries, 1);
}

TEST(TimerDue, AllAtOnceComeInOneGo) {
    std::vector<std::unique_ptr<ProbeTimer>> timers;
    {
        HeldTimerThread held;
        for (int i = 0; i < 50; ++i) timers.push_back(std::make_unique<ProbeTimer>());
        for (const auto& timer : timers) timer->startOnce(0);
    }
    for (const auto& timer : timers) EXPECT_TRUE(timer->expiredTimes(1));
}

// One that is armed for 0 ms by its own expiry does not keep the others from coming.
TEST(TimerDue, PeriodicOfZeroLeavesTheOthersTheirTurn) {
    ProbeTimer busy;
    ProbeTimer other;
    busy.startPeriodic(0);
    other.startPeriodic(3);
    EXPECT_TRUE(other.expiredTimes(5));
    EXPECT_TRUE(busy.expiredTimes(5));
}

TEST(TimerRetired, IsNotArmedByALaterStart) {
    class StartsInDestructor : public ProbeTimer {
    public:
        explicit StartsInDestructor(std::atomic<int>& count) : ProbeTimer(0, [&count] { ++count; }) {}
        ~StartsInDestructor() override {
            retire();
            startPeriodic(0);
            threadfunc::sleep(30);
        }
    };
    std::atomic<int> expiries{0};
    { const StartsInDestructor timer(expiries); }
    awaitTimerPass();
    EXPECT_EQ(expiries, 0);
}

}  // namespace
