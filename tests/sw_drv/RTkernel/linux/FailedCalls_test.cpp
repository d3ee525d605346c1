/// What the kit does when the system refuses: threads, locks, sleeping and the clock.

#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <string>
#include <utility>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/Calendar.h"
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

TEST(ThreadCreate, ComparesStackSizesUnsigned) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::threadCreate.fail(ENOMEM);
    startThread(4294967295U);  // as -1 arrives: not raised to the minimum
    EXPECT_EQ(injected::lastCreate.stackBytes, 4294967295U);
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

struct PolicyRow {
    const char* why;
    int priority;
    int policy;
    int rtPriority;
};
class ThreadScheduling : public testing::TestWithParam<PolicyRow> {};
// Also where the tests have no right to set priorities.
TEST_P(ThreadScheduling, IsAskedForByTheNewThreadItself) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::setScheduler.fail(EPERM);
    threadfunc::threadJoin(threadfunc::ThreadCreate(GetParam().priority, return5, nullptr, 0, nullptr, 0));
    EXPECT_EQ(injected::setScheduler.calls(), 1);
    EXPECT_EQ(injected::lastScheduler.process, 0);
    EXPECT_EQ(injected::lastScheduler.policy, GetParam().policy);
    EXPECT_EQ(injected::lastScheduler.priority, GetParam().rtPriority);
}
INSTANTIATE_TEST_SUITE_P(Rows, ThreadScheduling,
                         testing::Values(PolicyRow{"zeroIsTheHighest", 0, SCHED_RR, 99},
                                         PolicyRow{"lowest", 98, SCHED_RR, 1},
                                         PolicyRow{"beyondTheSpanIsTimeSharing", 99, SCHED_OTHER, 0},
                                         PolicyRow{"farBeyondToo", 100000, SCHED_OTHER, 0}),
                         [](const auto& row) { return std::string(row.param.why); });

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

std::string outputOfStart() {
    const CapturedOutput output(STDOUT_FILENO);
    threadfunc::threadJoin(startThread(0, "file"));
    return output.text();
}

// Their priority is that of the thread, and not of its creator.
TEST(ThreadStartLines, ComeAfterTheThreadHasSetItsPriority) {
    static const CapturedOutput* output = nullptr;
    static std::string printedBefore;
    std::string printed;
    printedBefore = "not asked";
    threadfunc::threadQuietOff();
    {
        const CapturedOutput captured(STDOUT_FILENO);
        output = &captured;
        injected::onSetScheduler = [] { printedBefore = output->text(); };
        threadfunc::threadJoin(startThread(0, "file"));
        injected::onSetScheduler = nullptr;
        printed = captured.text();
    }
    threadfunc::threadQuietOn();
    EXPECT_EQ(printedBefore, "");
    EXPECT_THAT(printed, testing::EndsWith("Call origin: file line 1\n"));
}

struct QuietRow {
    const char* why;
    void (*before)();
    void (*meanwhile)();
    const char* printed;
};
class QuietAtTheStart : public testing::TestWithParam<QuietRow> {};
TEST_P(QuietAtTheStart, IsDecidedByTheCreator) {
    GetParam().before();
    injected::onThreadStart = GetParam().meanwhile;
    const std::string printed = outputOfStart();
    injected::onThreadStart = nullptr;
    threadfunc::threadQuietOn();
    EXPECT_THAT(printed, MatchesRegex(GetParam().printed));
}
INSTANTIATE_TEST_SUITE_P(
    Rows, QuietAtTheStart,
    testing::Values(QuietRow{"linesThoughQuietSince", threadfunc::threadQuietOff, threadfunc::threadQuietOn,
                             "Starting thread. .*\nCall origin: file line 1\n"},
                    QuietRow{"noneThoughNotQuietSince", threadfunc::threadQuietOn, threadfunc::threadQuietOff, ""}),
    [](const auto& row) { return std::string(row.param.why); });

std::uint32_t joinNoThread() { return threadfunc::threadJoin(0); }

std::uint32_t startNone() { return startThread() == 0 ? 0 : 1; }

std::uint32_t startAndJoin() {
    threadfunc::threadQuietOff();
    const std::uint32_t result = threadfunc::threadJoin(startThread());
    threadfunc::threadQuietOn();
    return result;
}

std::uint32_t askForPriority() { return static_cast<std::uint32_t>(threadfunc::threadPriority()); }

struct NoTextRow {
    const char* why;
    injected::Call* call;  // null: it fails by itself
    int error;
    std::uint32_t (*operation)();
    std::uint32_t result;
    const char* printed;
};
class MissingErrorText : public testing::TestWithParam<NoTextRow> {};
// The C library has none when memory has run out; strlen of it once ended the process.
TEST_P(MissingErrorText, EndsTheLineAndLeavesTheStreamFailed) {
    const CapturedOutput errors(STDERR_FILENO);
    if (GetParam().call != nullptr) GetParam().call->fail(GetParam().error);
    injected::errorText.fail(ENOMEM);
    const std::uint32_t result = GetParam().operation();
    const bool failed = std::cerr.bad();
    std::cerr.clear();
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(injected::errorText.calls(), 1);
    EXPECT_EQ(errors.text(), GetParam().printed);
    EXPECT_TRUE(failed);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, MissingErrorText,
    testing::Values(NoTextRow{"attributes", &injected::attributesInit, ENOMEM, startNone, 0,
                              "threadfunc::ThreadCreate() - pthread_attr_init() reports error: "},
                    NoTextRow{"stackSize", &injected::attributesStackSize, EINVAL, startNone, 0,
                              "threadfunc::ThreadCreate() - pthread_attr_setstacksize() reports error: "},
                    NoTextRow{"thread", &injected::threadCreate, EAGAIN, startNone, 0,
                              "threadfunc::ThreadCreate() - pthread_create() reports error: "},
                    NoTextRow{"schedulingAndTheThreadRunsOn", &injected::setScheduler, EINVAL, startAndJoin, 5,
                              "threadfunc::InitThread() - sched_setscheduler() reports error: "},
                    NoTextRow{"schedulingWithoutTheHintToo", &injected::setScheduler, EPERM, startAndJoin, 5,
                              "threadfunc::InitThread() - sched_setscheduler() reports error: "},
                    NoTextRow{"priority", &injected::getParam, ESRCH, askForPriority, 4294967295U,
                              "threadfunc::threadPriority() - sched_getparam() reports error: "},
                    NoTextRow{"join", nullptr, 0, joinNoThread, 0,
                              "threadfunc::threadJoin() - pthread_join() reports error: "}),
    [](const auto& row) { return std::string(row.param.why); });

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

struct ReportRow {
    const char* why;
    int error;
    std::size_t longestWrite;
    const char* printed;
};
class CrashReportWrite : public kittest::EndingProcess, public testing::WithParamInterface<ReportRow> {};
TEST_P(CrashReportWrite, GoesOnUntilAllIsWrittenOrTheSystemRefuses) {
    if (kittest::watchedByThreadSanitizer()) GTEST_SKIP() << "ThreadSanitizer forbids exit in a signal handler";
    const auto report = [] {
        injected::textWrite.fail(GetParam().error, GetParam().error != 0 ? 1 : 0);
        injected::longestWrite = GetParam().longestWrite;
        siginfo_t information{};
        threadfunc::reportSegmentationFault(SIGSEGV, &information, nullptr);
    };
    EXPECT_EXIT(report(), testing::ExitedWithCode(1), GetParam().printed);
}
constexpr const char* kWholeReport =
    "^Process: [0-9]+, thread: [0-9]+, reports segmentation fault\nThread: signal address 0\n$";
INSTANTIATE_TEST_SUITE_P(Rows, CrashReportWrite,
                         testing::Values(ReportRow{"atOnce", 0, 1000, kWholeReport},
                                         ReportRow{"inPieces", 0, 7, kWholeReport},
                                         ReportRow{"afterASignal", EINTR, 1000, kWholeReport},
                                         ReportRow{"refused", EIO, 1000, "^$"}),
                         [](const auto& row) { return std::string(row.param.why); });

class WriteAll : public testing::TestWithParam<ReportRow> {};
TEST_P(WriteAll, GoesOnUntilAllIsWrittenOrTheSystemRefuses) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    injected::textWrite.fail(GetParam().error, GetParam().error != 0 ? 1 : 0);
    injected::longestWrite = GetParam().longestWrite;
    const bool written = threadfunc::writeAll(pipe[1], "eleven byte");
    EXPECT_EQ(written ? 0 : errno, written ? 0 : GetParam().error);
    injected::longestWrite = SIZE_MAX;
    close(pipe[1]);
    std::array<char, 20> got{};
    EXPECT_EQ(read(pipe[0], got.data(), got.size()), static_cast<ssize_t>(std::strlen(GetParam().printed)));
    EXPECT_STREQ(got.data(), GetParam().printed);
    EXPECT_EQ(written, *GetParam().printed != '\0');
    close(pipe[0]);
}
INSTANTIATE_TEST_SUITE_P(Rows, WriteAll,
                         testing::Values(ReportRow{"atOnce", 0, 1000, "eleven byte"},
                                         ReportRow{"inPieces", 0, 4, "eleven byte"},
                                         ReportRow{"afterASignal", EINTR, 1000, "eleven byte"},
                                         ReportRow{"refused", EIO, 1000, ""}),
                         [](const auto& row) { return std::string(row.param.why); });

// --- Sleep -------------------------------------------------------------------------------------------------------

TEST(FailedSleep, PrintsItsDeadlineAndReturnsEarly) {
    const CapturedOutput errors(STDERR_FILENO);
    const injected::MonotonicClock clock(1000, 999'999'999);
    injected::nanosleep.fail(EINVAL);
    threadfunc::sleep(60'002);
    EXPECT_EQ(injected::nanosleep.calls(), 1);
    EXPECT_EQ(
        errors.text(),
        "threadfunc::sleep() - nanosleep() reports result: 22 msec: 60002 tv_sec: 1061 tv_nsec: 1999999 cnt: 1\n");
}

TEST(FailedSleep, CountsTheInterruptedCallsToo) {
    const CapturedOutput errors(STDERR_FILENO);
    injected::nanosleep.fail(EINTR, 2, ENOTSUP);
    threadfunc::sleep(1);
    EXPECT_EQ(injected::nanosleep.calls(), 3);
    EXPECT_THAT(errors.text(), testing::StartsWith("threadfunc::sleep() - nanosleep() reports result: 95 msec: 1 "));
    EXPECT_THAT(errors.text(), testing::EndsWith(" cnt: 3\n"));
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

struct DeadlineRow {
    const char* why;
    long nanosecondsNow;
    int msec;
    injected::SleepArguments deadline;
};
class SleepDeadline : public testing::TestWithParam<DeadlineRow> {};
// It is the same at each call, so that an interrupted sleep ends at the same moment as an uninterrupted one.
TEST_P(SleepDeadline, IsAMomentOnTheMonotonicClock) {
    const CapturedOutput errors(STDERR_FILENO);
    const injected::MonotonicClock clock(100, GetParam().nanosecondsNow);
    for (const int interruptions : {0, 5}) {
        injected::lastSleep = {};
        injected::nanosleep.fail(EINTR, interruptions, EINVAL);
        threadfunc::sleep(GetParam().msec);
        EXPECT_EQ(injected::nanosleep.calls(), interruptions + 1);
        EXPECT_EQ(injected::lastSleep, GetParam().deadline);
    }
}
constexpr injected::SleepArguments until(long long seconds, long nanoseconds) {
    return {CLOCK_MONOTONIC, TIMER_ABSTIME, seconds, nanoseconds};
}
INSTANTIATE_TEST_SUITE_P(Rows, SleepDeadline,
                         testing::Values(DeadlineRow{"zeroIsNow", 5, 0, until(100, 5)},
                                         DeadlineRow{"millisecond", 5, 1, until(100, 1'000'005)},
                                         DeadlineRow{"justBelowASecond", 5, 999, until(100, 999'000'005)},
                                         DeadlineRow{"second", 5, 1000, until(101, 5)},
                                         DeadlineRow{"secondAndAHalf", 5, 1500, until(101, 500'000'005)},
                                         DeadlineRow{"lastNanosecond", 499'999'999, 1500, until(101, 999'999'999)},
                                         DeadlineRow{"carries", 500'000'000, 1500, until(102, 0)},
                                         DeadlineRow{"carriesMost", 999'999'999, 999, until(101, 998'999'999)},
                                         DeadlineRow{"largest", 900'000'000, 2147483647, until(2147584, 547'000'000)}),
                         [](const auto& row) { return std::string(row.param.why); });

// --- Lines come at once ------------------------------------------------------------------------------------------

/// Standard output goes into a pipe for the life of the object.
class PipedOutput {
public:
    PipedOutput() : saved(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (pipe(ends) != 0) std::abort();
        dup2(ends[1], STDOUT_FILENO);
    }
    ~PipedOutput() {
        std::fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        for (const int open : {saved, ends[0], ends[1]}) close(open);
    }
    PipedOutput(const PipedOutput&) = delete;
    PipedOutput& operator=(const PipedOutput&) = delete;

    std::string arrived() const {
        char text[512];
        pollfd readable{ends[0], POLLIN, 0};
        if (poll(&readable, 1, 0) <= 0) return "";
        return {text, static_cast<std::size_t>(read(ends[0], text, sizeof text))};
    }

private:
    int saved;
    int ends[2]{};
};

TEST(OutputLines, OfAFailedSemaphoreWaitAreFlushed) {
    const PipedOutput output;
    threadfunc::semaphore units(0);
    injected::semaphoreWait.fail(EINVAL);
    units.wait();
    EXPECT_EQ(output.arrived(), "sem_wait() 22\n");
}

TEST(OutputLines, OfAThreadStartAreFlushed) {
    const PipedOutput output;
    threadfunc::threadQuietOff();
    threadfunc::threadJoin(startThread(0, "file"));
    threadfunc::threadQuietOn();
    EXPECT_THAT(output.arrived(), testing::EndsWith("Call origin: file line 1\n"));
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

int lockOnly(threadfunc::mutex& lock) NO_THREAD_SAFETY_ANALYSIS { return lock.lock(); }

int tryOnly(threadfunc::mutex& lock) NO_THREAD_SAFETY_ANALYSIS { return lock.tryLock() ? 1 : 0; }

int lockAndUnlock(threadfunc::mutex& lock) NO_THREAD_SAFETY_ANALYSIS {
    lock.lock();
    const int result = lock.unlock();
    EXPECT_EQ(lock.unlock(), 0);  // still held
    return result;
}

int lockGlobally(threadfunc::mutex& /*lock*/) { return threadfunc::globalLock(); }

int lockAndUnlockGlobally(threadfunc::mutex& /*lock*/) {
    EXPECT_EQ(threadfunc::globalLock(), 0);
    const int result = threadfunc::globalUnlock();
    EXPECT_EQ(threadfunc::globalUnlock(), 0);
    return result;
}

struct LockRow {
    const char* why;
    injected::LockErrors errors;
    int (*operation)(threadfunc::mutex&);
    int result;
};
class FailedLock : public testing::TestWithParam<LockRow> {};
TEST_P(FailedLock, ReturnsTheErrorOfTheSystem) {
    threadfunc::mutex lock;
    injected::lockErrors = GetParam().errors;
    const int result = GetParam().operation(lock);
    const injected::LockErrors left = std::exchange(injected::lockErrors, {});
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(left.lock + left.tryLock + left.unlock, 0);  // the call was made
}
INSTANTIATE_TEST_SUITE_P(Rows, FailedLock,
                         testing::Values(LockRow{"lock", {EINVAL, 0, 0}, lockOnly, EINVAL},
                                         LockRow{"tryLockIsFalse", {0, EINVAL, 0}, tryOnly, 0},
                                         LockRow{"unlock", {0, 0, EPERM}, lockAndUnlock, EPERM},
                                         LockRow{"globalLock", {EAGAIN, 0, 0}, lockGlobally, EAGAIN},
                                         LockRow{"globalUnlock", {0, 0, EPERM}, lockAndUnlockGlobally, EPERM}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Locks, GiveBackWhatTheyTook) {
    injected::mutexDestroy.watch();
    injected::semaphoreDestroy.watch();
    {
        injected::lastMutexHadAttributes = true;
        const threadfunc::mutex lock;
        EXPECT_FALSE(injected::lastMutexHadAttributes);  // of the default kind
        const threadfunc::semaphore units(1);
        EXPECT_EQ(injected::lastSemaphoreShared, 0);  // for the threads of one process
        EXPECT_EQ(injected::mutexDestroy.calls() + injected::semaphoreDestroy.calls(), 0);
    }
    EXPECT_EQ(injected::mutexDestroy.calls(), 1);
    EXPECT_EQ(injected::semaphoreDestroy.calls(), 1);
}

class GlobalLockStart : public kittest::FreshProcess {};

// Whether the lock was made recursive, at the first of two calls.
void lockAndLeave(int expectedInits, int attributesTakenBack) {
    injected::mutexInit.watch();
    injected::mutexAttributesEnd.watch();
    for (int i = 0; i < 2; ++i) {
        require(threadfunc::globalLock() == 0);
        require(threadfunc::globalUnlock() == 0);
    }
    require(injected::mutexInit.calls() == expectedInits);
    require(injected::mutexAttributesEnd.calls() == attributesTakenBack);
    testsupport::leave(0);
}

TEST_F(GlobalLockStart, PreparesTheRecursiveKindOnce) {
    EXPECT_EXIT(lockAndLeave(1, 1), testing::ExitedWithCode(0), "^$");
}

TEST_F(GlobalLockStart, KeepsTheDefaultKindWhenAttributesFail) {
    const auto lock = [] {
        injected::mutexAttributesInit.fail(ENOMEM);
        lockAndLeave(0, 0);
    };
    EXPECT_EXIT(lock(), testing::ExitedWithCode(0), "^$");
}

TEST_F(GlobalLockStart, KeepsTheDefaultKindWhenTheKindIsRefused) {
    const auto lock = [] {
        injected::mutexAttributesType.fail(EINVAL);
        lockAndLeave(0, 1);
    };
    EXPECT_EXIT(lock(), testing::ExitedWithCode(0), "^$");
}

// --- Queue -------------------------------------------------------------------------------------------------------

/// Notes what of its queue is gone when a value dies in it.
struct LastToGo {
    int* mutexes;
    int* semaphores;
    ~LastToGo() {
        *mutexes = injected::mutexDestroy.calls();
        *semaphores = injected::semaphoreDestroy.calls();
    }
};

// In the reverse order of their making.
TEST(MessageQueueEnd, TakesTheGuardAndBothCountsBeforeTheValues) {
    int mutexes = -1;
    int semaphores = -1;
    {
        threadfunc::queue_template<LastToGo> queue(1);
        queue.put({&mutexes, &semaphores});
        injected::mutexDestroy.watch();
        injected::semaphoreDestroy.watch();
    }
    EXPECT_EQ(mutexes, 1);
    EXPECT_EQ(semaphores, 2);
}

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

// --- Reading the clock -------------------------------------------------------------------------------------------

TEST(FailedClock, CannotBeStarted) {
    EXPECT_EQ(threadfunc::startMonotonicClock(), 0);
    const injected::MonotonicClock unreadable;
    EXPECT_EQ(threadfunc::startMonotonicClock(), -1);
}

// Whoever compares with time sees the same second, also in the milliseconds in which gettimeofday is in the next one.
TEST(LocalClock, ShowsTheSecondThatTimeShows) {
    const calendar::Zone zone("ABC-2");
    injected::secondsNow = 1775221507;  // 3 April 2026 13:05:07 UTC, a Friday
    const threadfunc::PackedTime time = threadfunc::packedLocalTime();
    const threadfunc::PackedDate date = threadfunc::packedLocalDate();
    std::array<char, 32> text{};
    threadfunc::formatLocalTime(text.data(), nullptr);
    injected::secondsNow = 0;
    EXPECT_TRUE(time.hour == 15 && time.minute == 5 && time.second == 7);
    EXPECT_TRUE(date.day == 3 && date.month == 4 && date.year == 2026 && date.weekday == 5);
    EXPECT_STREQ(text.data(), "15:05:07");
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
        testsupport::leave(0);
    };
    EXPECT_EXIT(set(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
