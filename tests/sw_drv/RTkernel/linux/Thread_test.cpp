#include "sw_drv/RTkernel/linux/Thread.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "sw_drv/RTkernel/linux/CrashReport.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using kittest::KitThread;
using kittest::kTimeSharing;
using testing::MatchesRegex;
using testsupport::CapturedOutput;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

std::uint32_t returnPointee(void* argument) { return *static_cast<std::uint32_t*>(argument); }

class NotQuiet {
public:
    NotQuiet() { threadfunc::threadQuietOff(); }
    ~NotQuiet() { threadfunc::threadQuietOn(); }
    NotQuiet(const NotQuiet&) = delete;
    NotQuiet& operator=(const NotQuiet&) = delete;
};

bool maySetRealTimePriorities() {
    bool allowed = false;
    std::thread([&allowed] {
        sched_param parameters{};
        parameters.sched_priority = 1;
        allowed = sched_setscheduler(0, SCHED_RR, &parameters) == 0;
    }).join();
    return allowed;
}

// --- Start and end -----------------------------------------------------------------------------------------------

struct ExitValueRow {
    const char* why;
    std::uint32_t value;
};
class ThreadExitValue : public testing::TestWithParam<ExitValueRow> {};
TEST_P(ThreadExitValue, ComesBackFromJoin) {
    std::uint32_t value = GetParam().value;
    const pthread_t thread = threadfunc::ThreadCreate(kTimeSharing, returnPointee, &value, 0, __FILE__, __LINE__);
    ASSERT_NE(thread, pthread_t{0});
    EXPECT_EQ(threadfunc::threadJoin(thread), GetParam().value);
}
INSTANTIATE_TEST_SUITE_P(Rows, ThreadExitValue,
                         testing::Values(ExitValueRow{"zero", 0}, ExitValueRow{"small", 7},
                                         ExitValueRow{"signBit", 0x80000000U}, ExitValueRow{"allBits", 0xFFFFFFFFU}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Thread, StartsAgainAndAgainWithoutLeavingThreads) {
    const std::size_t before = testsupport::runningThreads();
    for (std::uint32_t i = 0; i < 200; ++i) {
        const pthread_t thread = threadfunc::ThreadCreate(20, returnPointee, &i, 0, nullptr, 0);
        ASSERT_EQ(threadfunc::threadJoin(thread), i);
    }
    EXPECT_TRUE(testsupport::waitFor([before] { return testsupport::runningThreads() <= before; }));
}

TEST(Thread, JoiningItselfFailsWithALineAndZero) {
    if (testsupport::instrumentedBuild()) GTEST_SKIP() << "the sanitizers end the process at this";
    const CapturedOutput errors(STDERR_FILENO);
    std::uint32_t result = 1;
    KitThread([&result] { result = threadfunc::threadJoin(pthread_self()); }).join();
    EXPECT_EQ(result, 0U);
    EXPECT_EQ(errors.text(), "threadfunc::threadJoin() - pthread_join() reports error: Resource deadlock avoided\n");
}

TEST(Thread, JoiningTheHandleOfAFailedStartFailsWithALineAndZero) {
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(threadfunc::threadJoin(0), 0U);
    EXPECT_EQ(errors.text(), "threadfunc::threadJoin() - pthread_join() reports error: No such process\n");
}

// --- Stack -------------------------------------------------------------------------------------------------------

std::uint32_t stackSizeOfThisThread(void* /*argument*/) {
    pthread_attr_t attributes;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return static_cast<std::uint32_t>(size);
}

struct StackRow {
    const char* why;
    unsigned asked;
    std::uint32_t given;
};
// In a new process: the C library gives the larger stack of a thread that has ended to one that asks for less.
class ThreadStack : public kittest::FreshProcess, public testing::WithParamInterface<StackRow> {};
TEST_P(ThreadStack, IsAsAskedButAtLeast16384Bytes) {
    if (testsupport::instrumentedBuild()) GTEST_SKIP() << "sanitizers need larger stacks";
    const auto start = [] {
        const pthread_t thread =
            threadfunc::ThreadCreate(kTimeSharing, stackSizeOfThisThread, nullptr, GetParam().asked, nullptr, 0);
        testsupport::leave(threadfunc::threadJoin(thread) == GetParam().given ? 0 : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
}
INSTANTIATE_TEST_SUITE_P(Rows, ThreadStack,
                         testing::Values(StackRow{"zeroIsTheMinimum", 0, 16384}, StackRow{"raised", 1000, 16384},
                                         StackRow{"oneBelow", 16383, 16384}, StackRow{"minimum", 16384, 16384},
                                         StackRow{"larger", 65536, 65536}, StackRow{"megabyte", 1U << 20U, 1U << 20U}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Thread, MinimumOfTheShippedBuildIs16384) {
    if (testsupport::instrumentedBuild()) GTEST_SKIP() << "sanitizers need larger stacks";
    EXPECT_EQ(threadfunc::kMinimumStackBytes, 16384U);
}

// --- Signals -----------------------------------------------------------------------------------------------------

std::string signalsNotBlockedRight(const sigset_t& mask) {
    std::string wrong;
    for (int signal = 1; signal < NSIG; ++signal) {
        const bool nobodysToBlock = signal == SIGKILL || signal == SIGSTOP || signal == 32 || signal == 33;
        const bool ofTheEmulator = signal > 62 && kittest::emulated();
        if (nobodysToBlock || ofTheEmulator) continue;
        if ((sigismember(&mask, signal) == 1) != (signal != SIGSEGV)) wrong += std::to_string(signal) + " ";
    }
    return wrong;
}

sigset_t maskOfThisThread() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

TEST(Thread, BlocksEverySignalButSegv) {
    std::string wrong;
    KitThread([&wrong] { wrong = signalsNotBlockedRight(maskOfThisThread()); }).join();
    EXPECT_EQ(wrong, "");
}

TEST(Thread, LeavesTheMaskOfItsCreatorAlone) {
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR2);
    std::thread([&user] {
        pthread_sigmask(SIG_SETMASK, &user, nullptr);
        KitThread([] {}).join();
        const sigset_t after = maskOfThisThread();
        EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
        EXPECT_EQ(sigismember(&after, SIGUSR1), 0);
        EXPECT_EQ(sigismember(&after, SIGINT), 0);
    }).join();
}

TEST(Thread, InstallsTheCrashReportWithoutMaskOrAlternateStack) {
    struct sigaction action {};
    stack_t stack{};
    std::signal(SIGSEGV, SIG_DFL);  // each new thread installs it again
    KitThread([&] {
        sigaction(SIGSEGV, nullptr, &action);
        sigaltstack(nullptr, &stack);
    }).join();
    EXPECT_EQ(action.sa_sigaction, threadfunc::reportSegmentationFault);
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_ONSTACK | SA_RESTART | SA_NODEFER), SA_SIGINFO);
    for (int signal = 1; signal < NSIG; ++signal) EXPECT_EQ(sigismember(&action.sa_mask, signal), 0) << signal;
    const bool ofTheSanitizer = testsupport::instrumentedBuild();
    EXPECT_TRUE(ofTheSanitizer || (stack.ss_flags & SS_DISABLE) != 0);
}

TEST(Thread, InitThreadWorksOnAnyThread) {
    std::string wrong = "not run";
    std::thread([&wrong] {
        sigset_t segv;
        sigemptyset(&segv);
        sigaddset(&segv, SIGSEGV);
        pthread_sigmask(SIG_BLOCK, &segv, nullptr);  // the mask is set as a whole: this does not stay
        threadfunc::InitThread(0);
        wrong = signalsNotBlockedRight(maskOfThisThread());
    }).join();
    EXPECT_EQ(wrong, "");
}

// --- Priority ----------------------------------------------------------------------------------------------------

struct PriorityRow {
    const char* why;
    int priority;
    int rtPriority;
};
class PriorityScale : public testing::TestWithParam<PriorityRow> {};
TEST_P(PriorityScale, MapsToTheSystem) {
    // The rows are written for Linux, where SCHED_RR goes from 1 to 99.
    ASSERT_EQ(sched_get_priority_max(SCHED_RR), 99);
    ASSERT_EQ(sched_get_priority_min(SCHED_RR), 1);
    EXPECT_EQ(threadfunc::rtPriorityOf(GetParam().priority), GetParam().rtPriority);
}
INSTANTIATE_TEST_SUITE_P(Rows, PriorityScale,
                         testing::Values(PriorityRow{"zeroIsTheHighest", 0, 99}, PriorityRow{"socketThreads", 20, 79},
                                         PriorityRow{"worker", 30, 69}, PriorityRow{"lowest", 98, 1},
                                         PriorityRow{"oneBelowIsTimeSharing", 99, 0},
                                         PriorityRow{"farBelowIsTimeSharing", 1000, 0},
                                         PriorityRow{"largest", INT_MAX, 0}, PriorityRow{"aboveTheHighest", -1, 100},
                                         PriorityRow{"smallestDoesNotOverflow", INT_MIN, INT_MAX}),
                         [](const auto& row) { return std::string(row.param.why); });

struct Scheduling {
    int policy;
    int priority;
    int kitPriority;
};

Scheduling schedulingOfKitThread(int priority) {
    Scheduling seen{};
    KitThread(
        [&seen] {
            sched_param parameters{};
            sched_getparam(0, &parameters);
            seen = {sched_getscheduler(0), parameters.sched_priority, threadfunc::threadPriority()};
        },
        priority)
        .join();
    return seen;
}

TEST(ThreadPriority, IsRoundRobinOnTheScale) {
    if (!maySetRealTimePriorities()) GTEST_SKIP() << "no right to set real-time priorities";
    for (const int priority : {0, 20, 30, 98}) {
        const Scheduling seen = schedulingOfKitThread(priority);
        EXPECT_EQ(seen.policy, SCHED_RR);
        EXPECT_EQ(seen.priority, 99 - priority);
        EXPECT_EQ(seen.kitPriority, priority);
    }
}

TEST(ThreadPriority, IsTimeSharingBelowTheScale) {
    const Scheduling seen = schedulingOfKitThread(kTimeSharing);
    EXPECT_EQ(seen.policy, SCHED_OTHER);
    EXPECT_EQ(seen.priority, 0);
    EXPECT_EQ(seen.kitPriority, 99);
}

TEST(ThreadPriority, IsSetByTheNewThreadAndNotInherited) {
    if (!maySetRealTimePriorities()) GTEST_SKIP() << "no right to set real-time priorities";
    Scheduling inner{};
    KitThread([&inner] { inner = schedulingOfKitThread(kTimeSharing); }, 40).join();
    EXPECT_EQ(inner.policy, SCHED_OTHER);
}

TEST(ThreadPriority, OneThatTheSystemRefusesIsReportedAlsoWhenQuiet) {
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(schedulingOfKitThread(-1).policy, SCHED_OTHER);  // runs on as it was
    EXPECT_EQ(errors.text(), "threadfunc::InitThread() - sched_setscheduler() reports error: Invalid argument\n");
}

/// Without the right to set priorities, whoever runs the test.
class UnprivilegedThread : public kittest::FreshProcess {
protected:
    // Runs in the process that ends.
    static void startOneAndLeave(bool quiet) {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_RTPRIO, &none);
        if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0) _exit(2);
        if (!quiet) threadfunc::threadQuietOff();
        int ran = 0;
        const auto body = [](void* argument) -> std::uint32_t {
            *static_cast<int*>(argument) = sched_getscheduler(0) == SCHED_OTHER ? 1 : 2;
            return 0;
        };
        threadfunc::threadJoin(threadfunc::ThreadCreate(20, body, &ran, 0, nullptr, 0));
        std::_Exit(ran == 1 ? 0 : 1);
    }
};

TEST_F(UnprivilegedThread, StartsSilentlyUnderItsInheritedPolicy) {
    EXPECT_EXIT(startOneAndLeave(true), testing::ExitedWithCode(0), "^$");
}

TEST_F(UnprivilegedThread, SaysSoWithAHintWhenNotQuiet) {
    EXPECT_EXIT(startOneAndLeave(false), testing::ExitedWithCode(0),
                "^threadfunc::InitThread\\(\\) - sched_setscheduler\\(\\) reports error: Operation not permitted # Run "
                "as ROOT to allow setting of thread priority\n$");
}

// --- Start lines -------------------------------------------------------------------------------------------------

std::string outputOfStart(const char* originFile, bool quiet, int priority = kTimeSharing) {
    const CapturedOutput output(STDOUT_FILENO);
    std::optional<NotQuiet> notQuiet;
    if (!quiet) notQuiet.emplace();
    threadfunc::threadJoin(threadfunc::ThreadCreate(
        priority, [](void*) -> std::uint32_t { return 0; }, nullptr, 0, originFile, 4711));
    return output.text();
}

std::string nextLine(std::istream& text) {
    std::string line;
    std::getline(text, line);
    return line;
}

TEST(ThreadStartLines, NameTheThreadAndItsOrigin) {
    const std::string process = std::to_string(getpid());
    EXPECT_THAT(outputOfStart("some/file.cpp", false),
                MatchesRegex("Starting thread. Process: " + process +
                             ", thread: [0-9]+, priority: 99\nCall origin: some/file.cpp line 4711\n"));
}

TEST(ThreadStartLines, NameThePriorityThatTheThreadWasGiven) {
    if (!maySetRealTimePriorities()) GTEST_SKIP() << "no right to set real-time priorities";
    EXPECT_THAT(outputOfStart("file", false, 40), testing::HasSubstr(", priority: 40\n"));
}

TEST(ThreadStartLines, AreNotPrintedWithoutAFile) { EXPECT_EQ(outputOfStart(nullptr, false), ""); }

TEST(ThreadStartLines, AreNotPrintedWhileQuietAsTheProcessStarts) { EXPECT_EQ(outputOfStart("file", true), ""); }

TEST(ThreadStartLines, NameTheThreadThatStarts) {
    const CapturedOutput output(STDOUT_FILENO);
    int id = 0;
    const NotQuiet notQuiet;
    KitThread([&id] { id = threadfunc::threadId(); }).join();
    EXPECT_THAT(output.text(), testing::HasSubstr(", thread: " + std::to_string(id) + ", priority: "));
}

constexpr int kRounds = 200;

struct Printed {
    std::istringstream output;
    std::istringstream errors;
};

// Three threads a round start at once, and each fails to join.
Printed outputOfStartsAtOnce() {
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    const NotQuiet notQuiet;
    for (int round = 0; round < kRounds; ++round) {
        std::array<pthread_t, 3> threads{};
        for (pthread_t& thread : threads)
            thread = threadfunc::ThreadCreate(
                kTimeSharing, [](void*) { return threadfunc::threadJoin(0); }, nullptr, 0, "file", 1);
        for (const pthread_t thread : threads) threadfunc::threadJoin(thread);
    }
    return {std::istringstream(output.text()), std::istringstream(errors.text())};
}

// Of thousands of lines, hundreds once had pieces of others in between.
TEST(ThreadLines, OfThreadsThatPrintAtOnceStayWhole) {
    Printed printed = outputOfStartsAtOnce();
    const std::string start = "Starting thread. Process: [0-9]+, thread: [0-9]+, priority: 99";
    const std::string error = "threadfunc::threadJoin() - pthread_join() reports error: No such process";
    for (int i = 0; i < 3 * kRounds; ++i) {
        ASSERT_THAT(nextLine(printed.output), MatchesRegex(start));
        ASSERT_EQ(nextLine(printed.output), "Call origin: file line 1");
        ASSERT_EQ(nextLine(printed.errors), error);
    }
    EXPECT_EQ(nextLine(printed.output) + nextLine(printed.errors), "");
}

// --- Sleep and id ------------------------------------------------------------------------------------------------

milliseconds timeOfSleep(int msec) {
    const auto start = Clock::now();
    threadfunc::sleep(msec);
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

TEST(Sleep, OfNegativeOrZeroReturnsAtOnce) {
    EXPECT_LT(timeOfSleep(-1), milliseconds(500));
    EXPECT_LT(timeOfSleep(INT_MIN), milliseconds(500));
    EXPECT_LT(timeOfSleep(0), milliseconds(500));
}

TEST(Sleep, LastsAtLeastAsLongAsAsked) {
    for (const int msec : {1, 30, 120}) {
        const milliseconds slept = timeOfSleep(msec);
        EXPECT_GE(slept, milliseconds(msec));
        EXPECT_LT(slept, milliseconds(msec) + milliseconds(2000));
    }
}

// The deadline itself, 1500 ms among others, stands in FailedCalls_test.cpp.
TEST(Sleep, EndsInItsTimeAlthoughSignalsInterruptIt) {
    const testsupport::InterruptingSignal signal;
    std::atomic<bool> done{false};
    milliseconds slept{};
    std::thread sleeper([&] {
        slept = timeOfSleep(300);
        done = true;
    });
    while (!done) {
        pthread_kill(sleeper.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(milliseconds(2));
    }
    sleeper.join();
    EXPECT_GE(slept, milliseconds(300));
    EXPECT_LT(slept, milliseconds(3000));
    const bool heldBack = kittest::watchedByThreadSanitizer();  // it delivers signals after the sleep
    EXPECT_GT(signal.seen(), heldBack ? 0 : 5);
}

TEST(ThreadId, IsTheKernelsAndDiffersFromThreadToThread) {
    EXPECT_EQ(threadfunc::threadId(), static_cast<int>(syscall(SYS_gettid)));
    int other = 0;
    KitThread([&other] { other = threadfunc::threadId(); }).join();
    EXPECT_NE(other, threadfunc::threadId());
    EXPECT_GT(other, 0);
}

}  // namespace
