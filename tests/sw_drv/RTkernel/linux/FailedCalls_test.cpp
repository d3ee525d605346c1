/// What the kit does when the system refuses: threads, locks, sleeping and the clock.

#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using kittest::require;
using testing::MatchesRegex;
using testsupport::CapturedOutput;

namespace {

std::uint32_t return5(void* /*argument*/) { return 5; }

pthread_t startThread(unsigned stackSize = 0, const char* originFile = nullptr) {
    return threadfunc::ThreadCreate(kittest::kTimeSharing, return5, nullptr, stackSize, originFile, 1);
}

// --- Starting a thread -------------------------------------------------------------------------------------------

struct CreateRow {
    const char* why;
    injected::Call& call;
    int error;
    const char* printed;
    int attributesDestroyed;
};
class FailedThreadCreate : public testing::TestWithParam<CreateRow> {};
TEST_P(FailedThreadCreate, PrintsItsLineAndReturns0) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::attributesDestroy.watch();
    GetParam().call.fail(GetParam().error);
    const pthread_t thread = startThread();
    EXPECT_EQ(thread, pthread_t{0});
    EXPECT_EQ(GetParam().call.calls(), 1);
    EXPECT_EQ(errors.text(), GetParam().printed);
    EXPECT_EQ(injected::attributesDestroy.calls(), GetParam().attributesDestroyed);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FailedThreadCreate,
    testing::Values(
        CreateRow{"attributes", injected::attributesInit, ENOMEM,
                  "threadfunc::ThreadCreate() - pthread_attr_init() reports error: Cannot allocate memory\n", 0},
        CreateRow{"stackSize", injected::attributesStackSize, EINVAL,
                  "threadfunc::ThreadCreate() - pthread_attr_setstacksize() reports error: Invalid argument\n", 1},
        CreateRow{"recordIsSilent", injected::newNothrow, ENOMEM, "", 1},
        CreateRow{"thread", injected::threadCreate, EAGAIN,
                  "threadfunc::ThreadCreate() - pthread_create() reports error: Resource temporarily unavailable\n",
                  1}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ThreadCreate, DestroysTheAttributesOfAStartedThreadToo) {
    injected::attributesDestroy.watch();
    EXPECT_EQ(threadfunc::threadJoin(startThread()), 5U);
    const int calls = injected::attributesDestroy.calls();
    EXPECT_TRUE(calls == 1 || (calls > 1 && testsupport::instrumentedBuild())) << calls;  // sanitizers have their own
}

// A signal that came between the start of a thread and its own blocking of signals once was handled there.
TEST(ThreadCreate, BlocksSignalsInTheCreatorUntilTheThreadIsThere) {
    threadfunc::threadJoin(startThread());
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGALRM})
        EXPECT_EQ(sigismember(&injected::lastCreate.creatorsMask, signal), 1) << signal;
    EXPECT_EQ(sigismember(&injected::lastCreate.creatorsMask, SIGSEGV), 0);
}

TEST(ThreadCreate, RestoresTheCreatorsSignalsAfterAFailureToo) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::threadCreate.fail(EAGAIN);
    startThread();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGINT), 0);
}

TEST(ThreadCreate, LeavesSchedulingToTheNewThread) {
    threadfunc::threadJoin(startThread());
    EXPECT_EQ(injected::lastCreate.inheritScheduling, PTHREAD_INHERIT_SCHED);
}

struct StackRow {
    const char* why;
    unsigned asked;
    std::size_t given;
};
class ThreadCreateStack : public testing::TestWithParam<StackRow> {};
TEST_P(ThreadCreateStack, IsAtLeastTheMinimum) {
    if (testsupport::instrumentedBuild()) GTEST_SKIP() << "sanitizers need larger stacks";
    threadfunc::threadJoin(startThread(GetParam().asked));
    EXPECT_EQ(injected::lastCreate.stackBytes, GetParam().given);
}
INSTANTIATE_TEST_SUITE_P(Rows, ThreadCreateStack,
                         testing::Values(StackRow{"zero", 0, 16384}, StackRow{"small", 1000, 16384},
                                         StackRow{"oneBelow", 16383, 16384}, StackRow{"minimum", 16384, 16384},
                                         StackRow{"oneAbove", 16385, 16385}, StackRow{"larger", 65536, 65536}),
                         [](const auto& row) { return std::string(row.param.why); });

// --- In the new thread -------------------------------------------------------------------------------------------

struct SchedulerRow {
    const char* why;
    int error;
    bool quiet;
    const char* printed;
};
class FailedScheduling : public testing::TestWithParam<SchedulerRow> {};
TEST_P(FailedScheduling, IsReportedAndTheThreadRunsOn) {
    const CapturedOutput errors(STDERR_FILENO);
    if (!GetParam().quiet) threadfunc::threadQuietOff();
    injected::setScheduler.fail(GetParam().error);
    const std::uint32_t result = threadfunc::threadJoin(startThread());
    threadfunc::threadQuietOn();
    EXPECT_EQ(result, 5U);
    EXPECT_EQ(injected::setScheduler.calls(), 1);
    EXPECT_EQ(errors.text(), GetParam().printed);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FailedScheduling,
    testing::Values(
        SchedulerRow{"noRightWhileQuietIsSilent", EPERM, true, ""},
        SchedulerRow{"noRightGivesAHint", EPERM, false,
                     "threadfunc::InitThread() - sched_setscheduler() reports error: Operation not permitted # Run as "
                     "ROOT to allow setting of thread priority\n"},
        SchedulerRow{"othersAreReportedWhileQuiet", ESRCH, true,
                     "threadfunc::InitThread() - sched_setscheduler() reports error: No such process\n"},
        SchedulerRow{"othersHaveNoHint", EINVAL, false,
                     "threadfunc::InitThread() - sched_setscheduler() reports error: Invalid argument\n"}),
    [](const auto& row) { return std::string(row.param.why); });

// The line names error -1, the call's result, whatever errno says; kept.
TEST(FailedThreadPriority, PrintsTheTextOfMinusOneAndReturnsMinusOne) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::getParam.fail(ESRCH);
    EXPECT_EQ(threadfunc::threadPriority(), -1);
    EXPECT_EQ(injected::getParam.calls(), 1);
    EXPECT_EQ(errors.text(), "threadfunc::threadPriority() - sched_getparam() reports error: Unknown error -1\n");
}

TEST(FailedThreadPriority, ShowsAsMinusOneInTheStartLines) {
    const CapturedOutput errors(STDERR_FILENO);
    const CapturedOutput output(STDOUT_FILENO);
    threadfunc::threadQuietOff();
    injected::getParam.fail(ESRCH);
    threadfunc::threadJoin(startThread(0, "file"));
    threadfunc::threadQuietOn();
    EXPECT_THAT(
        output.text(),
        MatchesRegex("Starting thread. Process: [0-9]+, thread: [0-9]+, priority: -1\nCall origin: file line 1\n"));
    EXPECT_EQ(errors.text(), "threadfunc::threadPriority() - sched_getparam() reports error: Unknown error -1\n");
}

class FailedCrashReport : public kittest::EndingProcess {};

TEST_F(FailedCrashReport, EndsTheProcessWithStatus1AndALine) {
    const auto install = [] {
        std::atexit([] { require(injected::signalAction.calls() == 1); });
        injected::signalAction.fail(EINVAL);
        threadfunc::installCrashReport();
    };
    EXPECT_EXIT(install(), testing::ExitedWithCode(1), "^sigaction: Invalid argument\n$");
}

TEST_F(FailedCrashReport, EndsItFromANewThreadToo) {
    const auto start = [] {
        injected::signalAction.fail(EINVAL);
        threadfunc::threadJoin(startThread());
    };
    if (kittest::emulated()) GTEST_SKIP() << "the emulator does not end with two threads after a fork";
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), "^sigaction: Invalid argument\n$");
}

// --- Sleep -------------------------------------------------------------------------------------------------------

TEST(FailedSleep, PrintsItsDeadlineAndReturnsEarly) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::nanosleep.fail(EINVAL);
    threadfunc::sleep(60000);
    EXPECT_EQ(injected::nanosleep.calls(), 1);
    EXPECT_THAT(errors.text(), MatchesRegex("threadfunc::sleep\\(\\) - nanosleep\\(\\) reports result: 22 msec: 60000 "
                                            "tv_sec: [0-9]+ tv_nsec: [0-9]+ cnt: 1\n"));
}

TEST(FailedSleep, GoesOnSilentlyWhenInterrupted) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::nanosleep.fail(EINTR, 3);
    threadfunc::sleep(1);
    EXPECT_EQ(injected::nanosleep.calls(), 4);
    EXPECT_EQ(errors.text(), "");
}

TEST(FailedSleep, OfNegativeMakesNoCallAndOfZeroOne) {
    injected::nanosleep.watch();
    threadfunc::sleep(-1);
    EXPECT_EQ(injected::nanosleep.calls(), 0);
    threadfunc::sleep(0);
    EXPECT_EQ(injected::nanosleep.calls(), 1);
}

// --- Locks -------------------------------------------------------------------------------------------------------

TEST(FailedSemaphoreWait, PrintsTheNumberOnStandardOutputAndReturnsAsIfItHadAUnit) {
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    threadfunc::semaphore units(0);
    injected::semaphoreWait.fail(EINVAL);
    units.wait();
    EXPECT_EQ(injected::semaphoreWait.calls(), 1);
    EXPECT_EQ(units.value(), 0);
    EXPECT_EQ(output.text(), "sem_wait() 22\n");
    EXPECT_EQ(errors.text(), "");
}

TEST(FailedSemaphoreWait, GoesOnSilentlyWhenInterrupted) {
    const CapturedOutput output(STDOUT_FILENO);
    threadfunc::semaphore units(1);
    injected::semaphoreWait.fail(EINTR, 5);
    units.wait();
    EXPECT_EQ(injected::semaphoreWait.calls(), 6);
    EXPECT_EQ(units.value(), 0);
    EXPECT_EQ(output.text(), "");
}

TEST(MutexWithoutMemory, FailsInAllItsOperations) {
    injected::newNothrow.fail(ENOMEM);
    injected::mutexInit.watch();
    threadfunc::mutex lock;
    EXPECT_EQ(injected::newNothrow.calls(), 1);
    EXPECT_EQ(injected::mutexInit.calls(), 0);
    const int locked = lock.lock();
    const int unlocked = lock.unlock();
    EXPECT_EQ(locked, ENOMEM);
    EXPECT_EQ(unlocked, ENOMEM);
    if (lock.tryLock()) {
        ADD_FAILURE() << "locked nothing";
        lock.unlock();
    }
}

class GlobalLockStart : public kittest::FreshProcess {};

// Whether the lock was made recursive, at the first of two calls.
void lockAndLeave(int expectedInits) {
    injected::mutexInit.watch();
    for (int i = 0; i < 2; ++i) {
        require(threadfunc::globalLock() == 0);
        require(threadfunc::globalUnlock() == 0);
    }
    require(injected::mutexInit.calls() == expectedInits);
    std::_Exit(0);
}

TEST_F(GlobalLockStart, PreparesTheRecursiveKindOnce) {
    EXPECT_EXIT(lockAndLeave(1), testing::ExitedWithCode(0), "^$");
}

TEST_F(GlobalLockStart, KeepsTheDefaultKindWhenAttributesFail) {
    const auto lock = [] {
        injected::mutexAttributesInit.fail(ENOMEM);
        lockAndLeave(0);
    };
    EXPECT_EXIT(lock(), testing::ExitedWithCode(0), "^$");
}

TEST_F(GlobalLockStart, KeepsTheDefaultKindWhenTheKindIsRefused) {
    const auto lock = [] {
        injected::mutexAttributesType.fail(EINVAL);
        lockAndLeave(0);
    };
    EXPECT_EXIT(lock(), testing::ExitedWithCode(0), "^$");
}

// --- Queue -------------------------------------------------------------------------------------------------------

TEST(MessageQueueMemory, IsAllocatedByTheBlockAndNotByTheValue) {
    constexpr int kValues = 12800;
    threadfunc::queue_template<std::int32_t> queue(kValues);
    injected::newThrowing.watch();
    for (int i = 0; i < kValues; ++i) queue.put(i);
    EXPECT_LE(injected::newThrowing.calls(), kValues / 128 + 20);  // and now and then a longer table of blocks
    int value = 0;
    while (queue.tryGet(value)) {
    }
    injected::newThrowing.watch();
    for (int i = 0; i < kValues; ++i) {
        queue.put(i);
        queue.get();
    }
    EXPECT_LE(injected::newThrowing.calls(), kValues / 128 + 20);
}

// --- Setting the clock -------------------------------------------------------------------------------------------

bool within(long long value, long long first, long long last) { return first <= value && value <= last; }

TEST(SetClock, TimeGoesToTheSystemWithTodaysUtcDay) {
    injected::setTime.watch();
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    EXPECT_EQ(threadfunc::setClockTime({1, 2, 3}), 0);
    gettimeofday(&after, nullptr);
    EXPECT_EQ(injected::setTime.calls(), 1);
    EXPECT_EQ(injected::lastSetTime.seconds % 86400, 3723);
    EXPECT_TRUE(within(injected::lastSetTime.seconds / 86400, before.tv_sec / 86400, after.tv_sec / 86400));
    EXPECT_TRUE(within(injected::lastSetTime.microseconds, 0, 999'999));
}

TEST(SetClock, DateGoesToTheSystemWithTheTimeOfDay) {
    injected::setTime.watch();
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    EXPECT_EQ(threadfunc::setClockDate({3, 4, 28, 0}), 0);  // counted from 1998: 2026
    gettimeofday(&after, nullptr);
    EXPECT_EQ(injected::setTime.calls(), 1);
    std::tm midnight{};
    midnight.tm_mday = 3;
    midnight.tm_mon = 3;
    midnight.tm_year = 126;
    const long long ofDay = injected::lastSetTime.seconds - std::mktime(&midnight);
    const bool midnightPassed = before.tv_sec / 86400 != after.tv_sec / 86400;
    EXPECT_TRUE(midnightPassed || within(ofDay, before.tv_sec % 86400, after.tv_sec % 86400));
}

TEST(SetClock, ThatTheSystemRefusesReturnsMinusOne) {
    injected::setTime.fail(EPERM, 2);
    EXPECT_EQ(threadfunc::setClockTime({1, 2, 3}), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(threadfunc::setClockDate({3, 4, 28, 0}), -1);
    EXPECT_EQ(injected::setTime.calls(), 2);
}

class SetClockInSimulatedTime : public kittest::EndingProcess {};

TEST_F(SetClockInSimulatedTime, StartsFromTheMachinesOwnClock) {
    const auto set = [] {
        timeval real{};
        gettimeofday(&real, nullptr);
        threadfunc::advanceSimulatedTime(40 * 86400.0);
        threadfunc::setClockTime({0, 0, 0});
        require(injected::lastSetTime.seconds / 86400 - real.tv_sec / 86400 <= 1);
        std::_Exit(0);
    };
    EXPECT_EXIT(set(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
