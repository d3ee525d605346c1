/// How much of its 16384-byte stack the kit leaves to a thread at the worst. Every thread here paints its stack before
/// it does anything else, so what the kit does at its start counts.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/PaintedStack.h"
#include "tests/support/Process.h"
#include "tests/support/TempFolder.h"
#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::ProbeTimer;
using testsupport::CapturedOutput;
using testsupport::PaintedStack;

namespace {

constexpr std::size_t kMustBeLeft = 4096;

/// Painted at the first call of each thread.
const PaintedStack& ownStack() {
    thread_local const PaintedStack stack;
    return stack;
}

// --- A crash that comes back: with nobody registered, the end of the process is a jump ---------------------------

thread_local sigjmp_buf* backFromExit = nullptr;

void comeBackIfAsked() {
    sigjmp_buf* const back = backFromExit;
    backFromExit = nullptr;
    if (back != nullptr) siglongjmp(*back, 1);
}

volatile std::uintptr_t nowhere = 0x10;  // an address that no process can write to

void crash() { *reinterpret_cast<volatile std::uint32_t*>(nowhere) = 1; }

void crashAndComeBack() {
    sigjmp_buf back;
    if (sigsetjmp(back, 1) != 0) return;
    backFromExit = &back;
    crash();
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status) {
    comeBackIfAsked();
    __real_exit(status);
}
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status) {
    comeBackIfAsked();
    __real__exit(status);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

// --- Threads that tell what is left ------------------------------------------------------------------------------

struct Measured {
    void (*worst)();
    std::size_t bytes;
    std::size_t left;
};

std::uint32_t runAndMeasure(void* argument) {
    Measured& run = *static_cast<Measured*>(argument);
    run.worst();
    run.bytes = ownStack().size();
    run.left = ownStack().untouched();
    return 0;
}

// Everything that a start can print and no right to anything.
void makeStartsTalk() {
    threadfunc::threadQuietOff();
    injected::setScheduler.fail(EPERM);
    injected::getParam.fail(ESRCH);
}

class SmallStack : public testing::Test {
protected:
    void SetUp() override {
        injected::onThreadStart = [] { static_cast<void>(ownStack()); };
        static const bool once = timerThreadStarted();
        ASSERT_TRUE(once);
    }
    void TearDown() override { threadfunc::threadQuietOn(); }

    static Measured onSmallestStack(void (*worst)()) {
        Measured run{worst, 0, 0};
        threadfunc::threadJoin(threadfunc::ThreadCreate(0, runAndMeasure, &run, 0, "a/source/file.cpp", INT_MAX));
        return run;
    }

    static std::atomic<const PaintedStack*> timerStack;

private:
    // The first timer of the process, with all that its thread can print at its start.
    static bool timerThreadStarted() {
        const CapturedOutput output(STDOUT_FILENO);
        const CapturedOutput errors(STDERR_FILENO);
        makeStartsTalk();
        ProbeTimer first(0, [] { timerStack = &ownStack(); });
        first.startOnce(0);
        return first.expiredTimes(1) && errors.text().find("# Run as ROOT") != std::string::npos &&
               output.text().find("line 385") != std::string::npos;
    }
};
std::atomic<const PaintedStack*> SmallStack::timerStack{nullptr};

// --- Threads of the kit ------------------------------------------------------------------------------------------

void doNothing() {}

void startAndFailToStart() {
    threadfunc::threadJoin(threadfunc::ThreadCreate(
        1000, [](void*) -> std::uint32_t { return 0; }, nullptr, 0, "a/source/file.cpp", 1));
    injected::threadCreate.fail(EAGAIN);
    threadfunc::threadJoin(threadfunc::ThreadCreate(0, nullptr, nullptr, 0, nullptr, 0));
}

void failToWaitAndSleep() {
    threadfunc::semaphore units(0);
    injected::semaphoreWait.fail(EINVAL);
    units.wait();
    injected::nanosleep.fail(EINVAL);
    threadfunc::sleep(INT_MAX);
}

void useQueuesAndTimers() {
    threadfunc::queue_template<std::string> queue(500);
    for (int i = 0; i < 500; ++i) queue.put("value");
    threadfunc::timer_template<std::string> timer(1000, &queue, "value");
    injected::byteWrite.fail(EIO);
    timer.startPeriodic(0);
    timer.trigger();
    timer.restartOnce();
    timer.stop();
    while (queue.size() > 0) queue.get();
}

void askForNamesAndMemory() {
    static_cast<void>(threadfunc::processName());
    static_cast<void>(threadfunc::currentMemoryUse());
    static_cast<void>(threadfunc::peakMemoryUse());
}

void useTheCalendar() {
    std::array<char, 64> text{};
    threadfunc::formatLocalTime(text.data(), nullptr);
    threadfunc::formatLocalDate(text.data(), "d.m.cy");
    threadfunc::setClockDate({3, 4, 28, 0});  // does not reach the system
    static_cast<void>(threadfunc::timeFromDayStamp(26093, 130507.25, false));
    static_cast<void>(threadfunc::dateTimeNumberFromTimeval(threadfunc::wallClockNow()));
}

struct WorstRow {
    const char* why;
    void (*worst)();
    const char* mustPrint;
};
class SmallStackOfThread : public SmallStack, public testing::WithParamInterface<WorstRow> {};
TEST_P(SmallStackOfThread, Has4096BytesLeft) {
    const testsupport::ScopedEnvironment zone("TZ", "Europe/Berlin");
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    makeStartsTalk();
    const Measured run = onSmallestStack(GetParam().worst);
    EXPECT_EQ(run.bytes, 16384U);
    EXPECT_GE(run.left, kMustBeLeft);
    RecordProperty("BytesLeft", std::to_string(run.left));
    EXPECT_NE(output.text().find("Call origin: a/source/file.cpp line 2147483647\n"), std::string::npos);
    EXPECT_NE(errors.text().find(GetParam().mustPrint), std::string::npos) << errors.text();
}
INSTANTIATE_TEST_SUITE_P(Rows, SmallStackOfThread,
                         testing::Values(WorstRow{"startThatPrintsAll", doNothing, "# Run as ROOT"},
                                         WorstRow{"startOfOthers", startAndFailToStart, "pthread_join() reports error"},
                                         WorstRow{"failedWaitAndSleep", failToWaitAndSleep, "threadfunc::sleep()"},
                                         WorstRow{"queuesAndTimers", useQueuesAndTimers, "unable to do a write"},
                                         WorstRow{"namesAndMemory", askForNamesAndMemory, ""},
                                         WorstRow{"calendar", useTheCalendar, ""},
                                         WorstRow{"crash", crashAndComeBack, "reports segmentation fault"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(SmallStack, ShowsHowDeepAThreadWent) {
    const CapturedOutput output(STDOUT_FILENO);
    const std::size_t ordinary = onSmallestStack(doNothing).left;
    const std::size_t deep = onSmallestStack([] {
                                 volatile unsigned char taken[6000];
                                 for (volatile unsigned char& byte : taken) byte = 1;
                             }).left;
    EXPECT_LE(deep, ordinary);
    EXPECT_LT(deep, 16384U - 6000U);
    EXPECT_GT(deep, 0U);
}

// --- The timer thread --------------------------------------------------------------------------------------------

TEST_F(SmallStack, OfTheTimerThreadHas4096BytesLeft) {
    const CapturedOutput errors(STDERR_FILENO);
    threadfunc::queue_template<int> queue(1);
    threadfunc::timer_template<int> full(1, &queue, 1);
    ProbeTimer crashing(0, crashAndComeBack);
    ProbeTimer failing(0, [] {
        injected::byteWrite.fail(EIO);
        injected::pollWait.fail(EINVAL);
        injected::nanosleep.fail(EINVAL);
    });
    full.startPeriodic(1);
    crashing.startOnce(0);
    failing.startPeriodic(0);
    EXPECT_TRUE(crashing.expiredTimes(1));
    EXPECT_TRUE(failing.expiredTimes(20));
    failing.stop();
    full.stop();
    EXPECT_EQ(timerStack.load()->size(), 16384U);
    EXPECT_GE(timerStack.load()->untouched(), kMustBeLeft);
    RecordProperty("BytesLeft", std::to_string(timerStack.load()->untouched()));
    const std::string printed = errors.text();
    for (const char* const line : {"reports segmentation fault", "unable to do a write", "threadfunc::sleep()"})
        EXPECT_NE(printed.find(line), std::string::npos) << line;
}

// --- A crash to the very end -------------------------------------------------------------------------------------

bool measuresAtExit = false;

// Registered before anything else, so it runs after all that others have registered.
__attribute__((constructor(101))) void registerMeasurement() {
    std::atexit([] {
        if (measuresAtExit) testsupport::leave(ownStack().untouched() >= kMustBeLeft ? 0 : 3);
    });
}

class SmallStackAtExit : public kittest::FreshProcess {};
TEST_F(SmallStackAtExit, OfACrashHas4096BytesLeft) {
    const auto crashOnThread = [] {
        measuresAtExit = true;
        injected::onThreadStart = [] { static_cast<void>(ownStack()); };
        const auto body = [](void*) -> std::uint32_t {
            crash();
            return 0;
        };
        threadfunc::threadJoin(threadfunc::ThreadCreate(0, body, nullptr, 0, nullptr, 0));
    };
    EXPECT_EXIT(crashOnThread(), testing::ExitedWithCode(0), "reports segmentation fault");
}

}  // namespace
