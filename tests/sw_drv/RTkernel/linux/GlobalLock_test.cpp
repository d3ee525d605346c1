#include "sw_drv/RTkernel/linux/GlobalLock.h"

#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using threadfunc::globalLock;
using threadfunc::globalUnlock;

namespace {

TEST(GlobalLock, TakenTwiceByOneThreadIsFreeForOthersAfterTwoReleases) {
    std::atomic<bool> got{false};
    ASSERT_EQ(globalLock(), 0);
    ASSERT_EQ(globalLock(), 0);
    std::thread other([&] {
        globalLock();
        got = true;
        globalUnlock();
    });
    EXPECT_EQ(globalUnlock(), 0);
    threadfunc::sleep(30);
    EXPECT_FALSE(got);  // one release is not enough
    EXPECT_EQ(globalUnlock(), 0);
    other.join();
    EXPECT_TRUE(got);
}

TEST(GlobalLock, IsOneForTheWholeProcess) {
    int count = 0;
    const auto countUp = [&] {
        for (int i = 0; i < 10000; ++i) {
            globalLock();
            ++count;
            globalUnlock();
        }
    };
    std::thread one(countUp);
    std::thread two(countUp);
    one.join();
    two.join();
    EXPECT_EQ(count, 20000);
}

class FirstGlobalLock : public kittest::FreshProcess {};

// The first call once prepared the lock without a guard: two first calls could lock two different states of it.
TEST_F(FirstGlobalLock, MayComeFromManyThreadsAtOnce) {
    const auto race = [] {
        int count = 0;
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                while (!go) std::this_thread::yield();
                if (globalLock() != 0 || globalLock() != 0) _exit(2);
                ++count;
                if (globalUnlock() != 0 || globalUnlock() != 0) _exit(3);
            });
        go = true;
        for (std::thread& thread : threads) thread.join();
        testsupport::leave(count == 8 ? 0 : 4);
    };
    EXPECT_EXIT(race(), testing::ExitedWithCode(0), "");
}

}  // namespace
