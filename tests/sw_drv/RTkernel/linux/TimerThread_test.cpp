/// The timer thread from its start, each time in a process that has had no timer.

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::ProbeTimer;
using kittest::require;

namespace {

class TimerThreadStart : public kittest::FreshProcess {};

TEST_F(TimerThreadStart, ComesWithTheFirstTimerAndNoOther) {
    const auto countThreads = [] {
        // With the first thread of a process ThreadSanitizer starts one of its own.
        const std::size_t before = testsupport::runningThreads() + (kittest::watchedByThreadSanitizer() ? 1 : 0);
        const std::size_t descriptors = testsupport::openDescriptors();
        const ProbeTimer first;
        require(testsupport::runningThreads() == before + 1);
        require(testsupport::openDescriptors() == descriptors + 2);
        const ProbeTimer second;
        require(testsupport::runningThreads() == before + 1);
        require(testsupport::openDescriptors() == descriptors + 2);
        testsupport::leave(0);
    };
    EXPECT_EXIT(countThreads(), testing::ExitedWithCode(0), "");
}

TEST_F(TimerThreadStart, MayComeFromManyThreadsAtOnce) {
    const auto race = [] {
        const std::size_t descriptors = testsupport::openDescriptors();
        std::vector<std::thread> threads;
        std::atomic<bool> go{false};
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&go] {
                while (!go) std::this_thread::yield();
                ProbeTimer timer;
                timer.startOnce(0);
                require(timer.expiredTimes(1));
            });
        go = true;
        for (std::thread& thread : threads) thread.join();
        require(testsupport::openDescriptors() == descriptors + 2);
        testsupport::leave(0);
    };
    EXPECT_EXIT(race(), testing::ExitedWithCode(0), "");
}

TEST_F(TimerThreadStart, NamesItsOriginWhenNotQuiet) {
    const auto start = [] {
        threadfunc::threadQuietOff();
        const testsupport::CapturedOutput output(STDOUT_FILENO);
        ProbeTimer timer;
        timer.startOnce(0);
        require(timer.expiredTimes(1));
        const std::string text = output.text();
        require(text.starts_with("Starting thread. Process: " + std::to_string(getpid()) + ", thread: "));
        require(text.ends_with("\nCall origin: sw_drv/RTkernel/linux/src/threadfunc line 385\n"));
        testsupport::leave(0);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
}

TEST_F(TimerThreadStart, IsSilentWhileQuiet) {
    const auto start = [] {
        const testsupport::CapturedOutput output(STDOUT_FILENO);
        ProbeTimer timer;
        timer.startOnce(0);
        require(timer.expiredTimes(1) && output.text().empty());
        testsupport::leave(0);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "^$");
}

TEST_F(TimerThreadStart, GivesItTheHighestPriorityAndTheSmallestStack) {
    const auto look = [] {
        int policy = -1;
        int priority = -1;
        std::size_t stackBytes = 0;
        ProbeTimer timer(0, [&] {
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &stackBytes);
            pthread_attr_destroy(&attributes);
            policy = sched_getscheduler(0);
            priority = threadfunc::threadPriority();
        });
        timer.startOnce(0);
        require(timer.expiredTimes(1));
        require(policy == SCHED_OTHER || priority == 0);  // the first without the right to set priorities
        require(testsupport::instrumentedBuild() || stackBytes == 16384);
        testsupport::leave(0);
    };
    EXPECT_EXIT(look(), testing::ExitedWithCode(0), "");
}

// select wrote outside its set for descriptors from 1024 on.
TEST_F(TimerThreadStart, WorksWithMoreThan1024OpenDescriptors) {
    const auto openMany = [] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::min<rlim_t>(4096, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
        int last = 0;
        while (last >= 0 && last < 1100) last = dup(STDIN_FILENO);
        ProbeTimer timer;
        timer.startPeriodic(1);
        require(timer.expiredTimes(20));
        testsupport::leave(0);
    };
    EXPECT_EXIT(openMany(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
