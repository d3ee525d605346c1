#include "sw_drv/RTkernel/linux/TimerPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"

using std::chrono::milliseconds;
using testsupport::CapturedOutput;
using threadfunc::TimerPipe;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kLongMs = 10000;
constexpr milliseconds kAtOnce{5000};  // far below kLongMs, far above what a busy machine delays

milliseconds sleepTime(const TimerPipe& pipe, int timeoutMs) {
    const auto start = Clock::now();
    pipe._threadTimerSleep(timeoutMs);
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

TEST(TimerPipe, SleepsItsTimeWithoutAWakeup) {
    const TimerPipe pipe;
    EXPECT_GE(sleepTime(pipe, 50), milliseconds(49));
    EXPECT_LT(sleepTime(pipe, 0), kAtOnce);
}

TEST(TimerPipe, WakeupBeforeTheSleepEndsItAtOnce) {
    const TimerPipe pipe;
    pipe._threadTimerWakeup();
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
}

TEST(TimerPipe, WakeupDuringTheSleepEndsIt) {
    const TimerPipe pipe;
    std::thread waker([&pipe] {
        std::this_thread::sleep_for(milliseconds(30));
        pipe._threadTimerWakeup();
    });
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
    waker.join();
}

TEST(TimerPipe, EachSleepTakesOneWakeup) {
    const TimerPipe pipe;
    pipe._threadTimerWakeup();
    pipe._threadTimerWakeup();
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
    EXPECT_GE(sleepTime(pipe, 30), milliseconds(29));
}

TEST(TimerPipe, WakeupIsOneByteOfZero) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const TimerPipe waking(-1, ends[1]);
    const TimerPipe closing(ends[0], -1);
    waking._threadTimerWakeup();
    std::array<char, 8> bytes{1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), 1);
    EXPECT_EQ(bytes[0], 0);
}

// A pipe with room for no more once held up whoever armed a timer, the timer thread itself included.
TEST(TimerPipe, FullOfWakeupsNeverHoldsUpItsWriterAndSaysNothing) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe pipe;
    for (int i = 0; i < 70000; ++i) pipe._threadTimerWakeup();  // room for 65536
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
    EXPECT_EQ(errors.text(), "");
}

TEST(TimerPipe, WakeupWithoutAWriteEndSaysSo) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe pipe(-1, -1);
    pipe._threadTimerWakeup();
    EXPECT_EQ(errors.text(), " _threadTimerWakeup unable to do a write\n");
}

TEST(TimerPipe, SleepWithoutAReadEndLastsItsTime) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe pipe(-1, -1);
    EXPECT_GE(sleepTime(pipe, 50), milliseconds(49));
    EXPECT_EQ(errors.text(), "");
}

TEST(TimerPipe, SleepOnAReadEndThatIsNotOpenLastsItsTime) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe pipe(1'000'000, -1);
    EXPECT_GE(sleepTime(pipe, 50), milliseconds(49));
    EXPECT_EQ(errors.text(), "");
}

TEST(TimerPipe, WakeupThatCannotBeReadIsReported) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe folder(open("/", O_RDONLY | O_CLOEXEC), -1);  // is always readable, and reads fail
    EXPECT_LT(sleepTime(folder, kLongMs), kAtOnce);
    EXPECT_EQ(errors.text(), " _threadTimerSleep unable to do a read\n");
}

TEST(TimerPipe, EndOfTheWriteEndIsReadAsFailure) {
    const CapturedOutput errors(STDERR_FILENO);
    const TimerPipe empty(open("/dev/null", O_RDONLY | O_CLOEXEC), -1);  // reads nothing
    EXPECT_LT(sleepTime(empty, kLongMs), kAtOnce);
    EXPECT_EQ(errors.text(), " _threadTimerSleep unable to do a read\n");
}

std::set<int> closeOnExecDescriptors() {
    std::set<int> found;
    for (int descriptor = 3; descriptor < 256; ++descriptor)
        if (const int flags = fcntl(descriptor, F_GETFD); flags >= 0 && (flags & FD_CLOEXEC) != 0)
            found.insert(descriptor);
    return found;
}

TEST(TimerPipe, IsClosedInProgramsThatThisOneStartsAndWithItsOwner) {
    const std::size_t open = testsupport::openDescriptors();
    const std::set<int> before = closeOnExecDescriptors();
    {
        const TimerPipe pipe;
        EXPECT_EQ(closeOnExecDescriptors().size(), before.size() + 2);
        EXPECT_EQ(testsupport::openDescriptors(), open + 2);
    }
    EXPECT_EQ(testsupport::openDescriptors(), open);
}

class ManyDescriptors {
public:
    ManyDescriptors() {
        getrlimit(RLIMIT_NOFILE, &previous);
        const rlimit more{std::min<rlim_t>(4096, previous.rlim_max), previous.rlim_max};
        setrlimit(RLIMIT_NOFILE, &more);
        while (opened.empty() || (opened.back() >= 0 && opened.back() < 1100)) opened.push_back(dup(STDIN_FILENO));
    }
    ~ManyDescriptors() {
        for (const int descriptor : opened) close(descriptor);
        setrlimit(RLIMIT_NOFILE, &previous);
    }
    ManyDescriptors(const ManyDescriptors&) = delete;
    ManyDescriptors& operator=(const ManyDescriptors&) = delete;

    bool enough() const { return opened.back() >= 1100; }

private:
    rlimit previous{};
    std::vector<int> opened;
};

// select wrote outside its set for descriptors from 1024 on.
TEST(TimerPipe, WorksWithDescriptorsBeyond1024) {
    const ManyDescriptors many;
    if (!many.enough()) GTEST_SKIP() << "not allowed to open that many descriptors";
    const TimerPipe pipe;
    EXPECT_GE(sleepTime(pipe, 30), milliseconds(29));
    pipe._threadTimerWakeup();
    EXPECT_LT(sleepTime(pipe, kLongMs), kAtOnce);
}

}  // namespace
