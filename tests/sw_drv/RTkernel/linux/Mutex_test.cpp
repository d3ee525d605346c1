#include "sw_drv/RTkernel/linux/Mutex.h"

#include <atomic>
#include <thread>
#include <type_traits>

#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using threadfunc::mutex;
using threadfunc::MutexLock;

namespace {

static_assert(!std::is_copy_constructible_v<mutex> && !std::is_copy_assignable_v<mutex>);
static_assert(std::has_virtual_destructor_v<mutex>);

bool othersCanTake(mutex& lock) NO_THREAD_SAFETY_ANALYSIS {
    bool taken = false;
    std::thread([&]() NO_THREAD_SAFETY_ANALYSIS {
        taken = lock.tryLock();
        if (taken) lock.unlock();
    }).join();
    return taken;
}

TEST(Mutex, LockAndUnlockReturnZero) {
    mutex lock;
    EXPECT_EQ(lock.lock(), 0);
    EXPECT_FALSE(othersCanTake(lock));
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_TRUE(othersCanTake(lock));
}

TEST(Mutex, TryLockTakesAFreeOneAndHoldsIt) {
    mutex lock;
    if (!lock.tryLock()) {
        FAIL() << "a free lock was not taken";
    }
    EXPECT_FALSE(othersCanTake(lock));
    lock.unlock();
    EXPECT_TRUE(othersCanTake(lock));
}

TEST(Mutex, TryLockOnOneHeldByAnotherThreadFailsWithoutWaiting) {
    mutex lock;
    std::atomic<bool> held{false};
    std::atomic<bool> finish{false};
    std::thread holder([&] {
        const MutexLock hold(lock);
        held = true;
        static_cast<void>(testsupport::waitFor([&] { return finish.load(); }));
    });
    ASSERT_TRUE(testsupport::waitFor([&] { return held.load(); }));
    EXPECT_FALSE(othersCanTake(lock));
    finish = true;  // only now, so the failed attempt did not wait for it
    holder.join();
    EXPECT_TRUE(othersCanTake(lock));
}

TEST(Mutex, IsNotRecursive) {
    mutex lock;
    lock.lock();
    bool takenTwice = true;
    [&]() NO_THREAD_SAFETY_ANALYSIS { takenTwice = lock.tryLock(); }();
    lock.unlock();
    EXPECT_FALSE(takenTwice);
}

TEST(Mutex, LockWaitsUntilItIsFree) {
    mutex lock;
    std::atomic<bool> got{false};
    lock.lock();
    std::thread waiter([&] {
        const MutexLock hold(lock);
        got = true;
    });
    threadfunc::sleep(30);
    EXPECT_FALSE(got);
    lock.unlock();
    waiter.join();
    EXPECT_TRUE(got);
}

TEST(Mutex, KeepsThreadsApart) {
    mutex lock;
    int count = 0;
    const auto countUp = [&] {
        for (int i = 0; i < 10000; ++i) {
            const MutexLock hold(lock);
            ++count;
        }
    };
    std::thread one(countUp);
    std::thread two(countUp);
    one.join();
    two.join();
    EXPECT_EQ(count, 20000);
}

}  // namespace
