#include "sw_drv/RTkernel/linux/ProcessExit.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

namespace {

class ProcessExit : public kittest::EndingProcess {};
class ProcessExitOfThreads : public kittest::FreshProcess {};

void say(const char* text) { static_cast<void>(write(STDERR_FILENO, text, 1) == 1); }

TEST_F(ProcessExit, EndsWithTheStatusAndRunsWhatIsRegistered) {
    const auto leave = [] {
        std::atexit([] { say("x"); });
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "^x$");
}

TEST_F(ProcessExitOfThreads, HoldsEveryLaterThreadAndLosesItsStatus) {
    static std::atomic<int> inside{0};
    const auto leaveTwice = [] {
        std::atexit([] {
            std::thread([] {
                ++inside;
                threadfunc::exitProcess(8);  // never returns, never ends the process
            }).detach();
            static_cast<void>(testsupport::waitFor([] { return inside == 1; }));
            threadfunc::sleep(50);
            say("x");
        });
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(leaveTwice(), testing::ExitedWithCode(7), "^x$");
}

TEST_F(ProcessExitOfThreads, ManyThreadsAtOnceRunTheExitOnce) {
    const auto race = [] {
        std::atexit([] { say("x"); });
        for (int i = 0; i < 8; ++i) std::thread([] { threadfunc::exitProcess(7); }).detach();
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(race(), testing::ExitedWithCode(7), "^x$");
}

TEST_F(ProcessExit, FromInsideTheExitOnTheSameThreadEndsAtOnce) {
    const auto leaveAgain = [] {
        std::atexit([] { threadfunc::exitProcess(9); });
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(leaveAgain(), testing::ExitedWithCode(9), "^$");
}

TEST_F(ProcessExit, IsClaimedOnce) {
    const auto claim = [] {
        const bool first = threadfunc::claimProcessExit();
        const bool second = threadfunc::claimProcessExit();
        testsupport::leave(first && !second ? 0 : 1);
    };
    EXPECT_EXIT(claim(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessExit, HoldsNobodyBeforeTheGateIsTakenAndNeverTheThreadThatTookIt) {
    const auto leave = [] {
        std::atexit([] {
            threadfunc::holdWhileProcessEnds();
            say("x");
        });
        threadfunc::holdWhileProcessEnds();
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "^x$");
}

TEST_F(ProcessExitOfThreads, HoldsWhoeverAsksMeanwhile) {
    static std::atomic<int> inside{0};
    const auto leave = [] {
        std::atexit([] {
            std::thread([] {
                ++inside;
                threadfunc::holdWhileProcessEnds();
                say("y");
            }).detach();
            static_cast<void>(testsupport::waitFor([] { return inside == 1; }));
            threadfunc::sleep(50);
            say("x");
        });
        threadfunc::exitProcess(7);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "^x$");
}

// The timer thread works on while exit runs: nothing that it touches may be gone by then.
TEST_F(ProcessExitOfThreads, LeavesAllThatTheTimerThreadTouches) {
    const auto leaveWithTimers = [] {
        static auto& queue = *new threadfunc::queue_template<int>(1000000);
        static auto& timer = *new threadfunc::timer_template<int>(0, &queue, 1);
        std::atexit([] {
            const int before = queue.size();
            const bool works = testsupport::waitFor([before] { return queue.size() > before + 10; });
            if (!works) _exit(5);
        });
        timer.startPeriodic(0);
        threadfunc::threadJoin(threadfunc::ThreadCreate(
            30, [](void*) -> std::uint32_t { threadfunc::exitProcess(0); }, nullptr, 0, __FILE__, __LINE__));
    };
    EXPECT_EXIT(leaveWithTimers(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
