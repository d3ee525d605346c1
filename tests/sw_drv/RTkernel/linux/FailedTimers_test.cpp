/// What the timers do when the system refuses, how often the timer thread is woken, and the wrap of its clock.

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/Stopwatch.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::awaitTimerPass;
using kittest::ProbeTimer;
using kittest::require;

namespace {

class FailedTimers : public kittest::FreshProcess {};

// At the start a pass may be at its end, or a wake-up not taken yet; from then on each one takes 200 ms.
bool passesComeEvery200Milliseconds() {
    const threadfunc::Stopwatch watch(true);
    const int before = injected::pollWait.calls();
    threadfunc::sleep(500);
    if (!testsupport::waitFor([before] { return injected::pollWait.calls() > before; })) return false;
    const int passes = injected::pollWait.calls() - before;
    return passes <= watch.elapsedMs() / 200 + 2;
}

constexpr const char* kNoPipe = " Unable to initialize pipe for Thread timer\n";
constexpr const char* kNoWrite = " _threadTimerWakeup unable to do a write\n";

TEST_F(FailedTimers, WithoutAPipeComeAtThePassOfTheThread) {
    const auto runWithoutPipe = [] {
        const testsupport::CapturedOutput errors(STDERR_FILENO);
        injected::pipeOpen.fail(EMFILE);
        ProbeTimer timer;
        require(injected::pipeOpen.calls() == 1);
        require(errors.text() == kNoPipe);
        timer.startOnce(10);
        require(errors.text() == std::string(kNoPipe) + kNoWrite);
        require(timer.expiredTimes(1));
        ProbeTimer far;
        far.startOnce(60'000);
        awaitTimerPass();  // noticed although the first one is far away
        testsupport::leave(0);
    };
    EXPECT_EXIT(runWithoutPipe(), testing::ExitedWithCode(0), "^$");
}

// select on descriptor -1 fails at once: the thread once went round without end at the highest priority.
TEST_F(FailedTimers, WithoutAPipeDoNotKeepTheProcessorBusy) {
    const auto countPasses = [] {
        const testsupport::CapturedOutput errors(STDERR_FILENO);
        injected::pipeOpen.fail(EMFILE);
        const ProbeTimer timer;
        require(passesComeEvery200Milliseconds());
        testsupport::leave(0);
    };
    EXPECT_EXIT(countPasses(), testing::ExitedWithCode(0), "^$");
}

// A poll that the system refuses returned at once, and the thread went round without end.
TEST_F(FailedTimers, WithoutAWaitForThePipeComeAllTheSameAndDoNotKeepTheProcessorBusy) {
    const auto countPasses = [] {
        injected::pollWait.fail(EINVAL, INT_MAX);
        ProbeTimer timer;
        timer.startPeriodic(40);
        require(timer.expiredTimes(2));
        timer.stop();
        require(passesComeEvery200Milliseconds());
        testsupport::leave(0);
    };
    EXPECT_EXIT(countPasses(), testing::ExitedWithCode(0), "^$");
}

TEST_F(FailedTimers, WithoutAThreadNeverExpireAndSaySoOnce) {
    const auto runWithoutThread = [] {
        injected::threadCreate.fail(EAGAIN);
        ProbeTimer first;
        ProbeTimer second;
        first.startOnce(0);
        second.startPeriodic(1);
        threadfunc::sleep(250);
        require(first.expiries == 0 && second.expiries == 0);
        require(injected::threadCreate.calls() == 1);
        testsupport::leave(0);
    };
    EXPECT_EXIT(runWithoutThread(), testing::ExitedWithCode(0),
                "^threadfunc::ThreadCreate\\(\\) - pthread_create\\(\\) reports error: Resource temporarily "
                "unavailable\n$");
}

// Also where the tests have no right to set priorities.
TEST_F(FailedTimers, WithoutTheRightToItHaveAskedForTheHighestPriority) {
    const auto look = [] {
        injected::setScheduler.fail(EPERM);
        ProbeTimer timer;
        timer.startOnce(0);
        require(timer.expiredTimes(1) && injected::setScheduler.calls() == 1);
        require(injected::lastScheduler.policy == SCHED_RR && injected::lastScheduler.priority == 99);
        require(injected::lastCreate.stackBytes == threadfunc::kMinimumStackBytes);
        testsupport::leave(0);
    };
    EXPECT_EXIT(look(), testing::ExitedWithCode(0), "^$");
}

struct AttributesRow {
    const char* why;
    injected::Call& call;
    int error;
    const char* printed;
};
class FailedTimerAttributes : public kittest::FreshProcess, public testing::WithParamInterface<AttributesRow> {};
TEST_P(FailedTimerAttributes, LeaveTheTimersWithoutAThreadAndSaySo) {
    const auto run = [] {
        injected::threadCreate.watch();
        GetParam().call.fail(GetParam().error);
        const ProbeTimer timer;
        require(GetParam().call.calls() == 1 && injected::threadCreate.calls() == 0);
        testsupport::leave(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), GetParam().printed);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FailedTimerAttributes,
    testing::Values(
        AttributesRow{
            "attributes", injected::attributesInit, ENOMEM,
            "^threadfunc::ThreadCreate\\(\\) - pthread_attr_init\\(\\) reports error: Cannot allocate memory\n$"},
        AttributesRow{
            "stackSize", injected::attributesStackSize, EINVAL,
            "^threadfunc::ThreadCreate\\(\\) - pthread_attr_setstacksize\\(\\) reports error: Invalid argument\n$"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(FailedWait, OfTheTimerThreadGoesOnWithTheNextPass) {
    ProbeTimer timer;
    injected::pollWait.fail(EINTR, 3);
    timer.startPeriodic(5);
    EXPECT_TRUE(timer.expiredTimes(5));
    EXPECT_GE(injected::pollWait.calls(), 3);
    timer.stop();
}

TEST(FailedWakeup, IsReportedAndTheTimerComesAtTheNextPass) {
    const testsupport::CapturedOutput errors(STDERR_FILENO);
    ProbeTimer timer;
    awaitTimerPass();
    injected::byteWrite.fail(EIO);
    timer.startOnce(0);
    EXPECT_EQ(errors.text(), kNoWrite);
    EXPECT_TRUE(timer.expiredTimes(1));
}

TEST(Wakeup, ComesOnlyWhenATimerGoesToTheFront) {
    ProbeTimer later;
    ProbeTimer last;
    ProbeTimer first;
    awaitTimerPass();
    injected::byteWrite.watch();
    later.startOnce(50'000);  // into an empty list
    EXPECT_EQ(injected::byteWrite.calls(), 1);
    last.startOnce(60'000);
    EXPECT_EQ(injected::byteWrite.calls(), 1);
    first.startOnce(40'000);
    EXPECT_EQ(injected::byteWrite.calls(), 2);
    later.restartOnce();
    first.stop();
    EXPECT_EQ(injected::byteWrite.calls(), 2);
    later.trigger();  // not periodic: not armed
    EXPECT_EQ(injected::byteWrite.calls(), 2);
    later.startPeriodic(30'000);
    later.trigger();
    EXPECT_EQ(injected::byteWrite.calls(), 4);
}

// Those who arm a timer in its last moments count on the thread taking a look.
TEST(Wakeup, ComesAlsoFromATimerThatIsBeingDestroyed) {
    class StartsInDestructor : public ProbeTimer {
    public:
        ~StartsInDestructor() override {
            retire();
            injected::byteWrite.watch();
            startOnce(77);
            EXPECT_EQ(injected::byteWrite.calls(), 1);
            EXPECT_EQ(interval(), 0);  // and is not armed
        }
    };
    awaitTimerPass();
    const StartsInDestructor timer;
}

TEST(TimerPasses, ComeEvery200MillisecondsWithoutATimer) {
    awaitTimerPass();
    EXPECT_TRUE(testsupport::waitFor(passesComeEvery200Milliseconds));  // once the wake-ups of other tests are taken
}

class ClockWrap : public kittest::FreshProcess {};

void putClock400MillisecondsBeforeItsWrap() {
    const auto now = static_cast<std::uint32_t>(threadfunc::monotonicMilliseconds());
    injected::monotonicAheadMs += std::uint32_t{INT_MAX - 400} - now;
}

// After 24.8 days the clock went negative: timers then expired at once, or not before another 24.8 days.
TEST_F(ClockWrap, IsNoticedByNoTimer) {
    const auto runAcrossWrap = [] {
        ProbeTimer periodic;
        ProbeTimer across;
        ProbeTimer far;
        threadfunc::Stopwatch watch(false);
        do {  // again when it took so long that the clock has wrapped before all were armed
            for (ProbeTimer* const timer : {&periodic, &across, &far}) timer->stop();
            for (ProbeTimer* const timer : {&periodic, &across, &far}) timer->expiries = 0;
            putClock400MillisecondsBeforeItsWrap();
            watch.start();
            periodic.startPeriodic(5);
            far.startOnce(60'000);
            across.startOnce(600);
        } while (threadfunc::monotonicMilliseconds() < 0);
        require(across.expiredTimes(1));
        require(threadfunc::monotonicMilliseconds() < 0);
        require(watch.elapsed() >= 0.598);
        const int before = periodic.expiries;
        require(before >= 1 && before <= watch.elapsedMs() / 3);  // neither stood still nor went wild
        require(periodic.expiredTimes(before + 10));
        require(far.expiries == 0);
        testsupport::leave(0);
    };
    EXPECT_EXIT(runAcrossWrap(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
