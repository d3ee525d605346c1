#include "sw_drv/RTkernel/linux/Semaphore.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <thread>
#include <type_traits>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using threadfunc::semaphore;

namespace {

static_assert(!std::is_copy_constructible_v<semaphore> && !std::is_copy_assignable_v<semaphore>);
static_assert(std::has_virtual_destructor_v<semaphore>);

TEST(Semaphore, OfZeroGivesOneUnitForOnePost) {
    semaphore units(0);
    EXPECT_FALSE(units.tryWait());
    EXPECT_EQ(units.post(), 0);
    EXPECT_TRUE(units.tryWait());
    EXPECT_FALSE(units.tryWait());
}

TEST(Semaphore, CountsDownWithEachWait) {
    semaphore units(100);
    EXPECT_EQ(units.value(), 100);
    units.wait();
    units.wait();
    units.wait();
    EXPECT_EQ(units.value(), 97);
    EXPECT_TRUE(units.tryWait());
    EXPECT_EQ(units.value(), 96);
    units.post();
    EXPECT_EQ(units.value(), 97);
}

TEST(Semaphore, WaitsForAPostOfAnotherThread) {
    semaphore units(0);
    std::atomic<bool> got{false};
    std::thread waiter([&] {
        units.wait();
        got = true;
    });
    threadfunc::sleep(30);
    EXPECT_FALSE(got);
    units.post();
    waiter.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(units.value(), 0);
}

TEST(Semaphore, WaitGoesOnSilentlyAfterASignal) {
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    const testsupport::CapturedOutput errors(STDERR_FILENO);
    const testsupport::InterruptingSignal signal;
    semaphore units(0);
    std::atomic<bool> got{false};
    std::thread waiter([&] {
        units.wait();
        got = true;
    });
    for (int i = 1; i <= 20 && !HasFailure(); ++i) {
        EXPECT_TRUE(testsupport::signalUntil(waiter.native_handle(), SIGUSR1, [&] { return signal.seen() >= i; }));
        EXPECT_FALSE(got);
    }
    units.post();
    waiter.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(output.text() + errors.text(), "");
}

struct LargeRow {
    const char* why;
    unsigned asked;
    int units;
};
class LargeSemaphore : public testing::TestWithParam<LargeRow> {};
TEST_P(LargeSemaphore, StopsAtTheMaximum) {
    semaphore units(GetParam().asked);
    EXPECT_EQ(units.value(), GetParam().units);
    EXPECT_TRUE(units.tryWait());
    EXPECT_EQ(units.value(), GetParam().units - 1);
}
INSTANTIATE_TEST_SUITE_P(Rows, LargeSemaphore,
                         testing::Values(LargeRow{"maximum", INT_MAX, INT_MAX},
                                         LargeRow{"oneBeyond", INT_MAX + 1U, INT_MAX},
                                         LargeRow{"largest", UINT_MAX, INT_MAX}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Semaphore, PostAtTheMaximumFails) {
    semaphore units(INT_MAX);
    EXPECT_EQ(units.post(), -1);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(units.value(), INT_MAX);
}

}  // namespace
