#include "sw_drv/RTkernel/linux/MessageQueue.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/Process.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

using threadfunc::queue_template;

namespace {

static_assert(!std::is_copy_constructible_v<queue_template<int>> && !std::is_copy_assignable_v<queue_template<int>>);
static_assert(std::has_virtual_destructor_v<queue_template<int>>);

struct Counts {
    int size;
    int space;
    bool operator==(const Counts&) const = default;
};

template <typename T>
Counts countsOf(const queue_template<T>& queue) {
    return {queue.size(), queue.space()};
}

void fill(queue_template<int>& queue, int count) {
    for (int i = 1; i <= count; ++i) ASSERT_TRUE(queue.tryPut(i));
}

TEST(MessageQueue, StartsEmptyWithAllItsSpace) {
    const queue_template<int> queue(10);
    EXPECT_EQ(countsOf(queue), (Counts{0, 10}));
    EXPECT_EQ(queue.capacity, 10U);
}

TEST(MessageQueue, TakesAsManyAsItsCapacityAndThenRefuses) {
    queue_template<int> queue(10);
    fill(queue, 10);
    EXPECT_FALSE(queue.tryPut(11));
    EXPECT_EQ(countsOf(queue), (Counts{10, 0}));
    EXPECT_EQ(queue.get(), 1);
    EXPECT_EQ(countsOf(queue), (Counts{9, 1}));
    EXPECT_TRUE(queue.tryPut(12));  // room for exactly one more
    EXPECT_FALSE(queue.tryPut(13));
    for (const int expected : {2, 3, 4, 5, 6, 7, 8, 9, 10, 12}) EXPECT_EQ(queue.get(), expected);
    EXPECT_EQ(countsOf(queue), (Counts{0, 10}));
}

TEST(MessageQueue, EveryWayInAndOutKeepsTheCounts) {
    queue_template<int> queue(3);
    int value = 0;
    queue.put(1);
    EXPECT_EQ(countsOf(queue), (Counts{1, 2}));
    EXPECT_TRUE(queue.tryPut(2));
    EXPECT_EQ(countsOf(queue), (Counts{2, 1}));
    EXPECT_EQ(queue.get(), 1);
    EXPECT_EQ(countsOf(queue), (Counts{1, 2}));
    EXPECT_TRUE(queue.tryGet(value));
    EXPECT_EQ(value, 2);
    EXPECT_EQ(countsOf(queue), (Counts{0, 3}));
}

TEST(MessageQueue, TryGetOnAnEmptyOneFailsAtOnceAndLeavesTheValue) {
    queue_template<int> queue(10);
    int value = 42;
    EXPECT_FALSE(queue.tryGet(value));
    EXPECT_EQ(value, 42);
    EXPECT_EQ(countsOf(queue), (Counts{0, 10}));
}

TEST(MessageQueue, GetOnAnEmptyOneWaitsForThePutOfAnotherThread) {
    queue_template<int> queue(10);
    std::atomic<int> got{0};
    std::thread reader([&] { got = queue.get(); });
    threadfunc::sleep(30);
    EXPECT_EQ(got, 0);
    queue.put(5);
    reader.join();
    EXPECT_EQ(got, 5);
}

TEST(MessageQueue, GetIsWokenByTryPutToo) {
    queue_template<int> queue(1);
    std::atomic<int> got{0};
    std::thread reader([&] { got = queue.get(); });
    EXPECT_TRUE(testsupport::waitFor([&] { return queue.tryPut(5); }));
    reader.join();
    EXPECT_EQ(got, 5);
}

TEST(MessageQueue, PutIntoAFullOneWaitsForAGetInAnotherThread) {
    queue_template<int> queue(2);
    fill(queue, 2);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        queue.put(3);
        done = true;
    });
    threadfunc::sleep(30);
    EXPECT_FALSE(done);
    EXPECT_EQ(queue.get(), 1);
    writer.join();
    EXPECT_TRUE(done);
    EXPECT_EQ(queue.get(), 2);
    EXPECT_EQ(queue.get(), 3);
}

TEST(MessageQueue, PutIsWokenByTryGetToo) {
    queue_template<int> queue(1);
    fill(queue, 1);
    std::thread writer([&] { queue.put(2); });
    int value = 0;
    EXPECT_TRUE(queue.tryGet(value));
    writer.join();
    EXPECT_EQ(queue.get(), 2);
}

// A waiting put or get holds no lock: everything else goes on meanwhile.
TEST(MessageQueue, WaitsWithoutHoldingTheGuard) {
    queue_template<int> full(1);
    fill(full, 1);
    std::thread writer([&] { full.put(2); });
    threadfunc::sleep(20);
    EXPECT_FALSE(full.tryPut(3));
    int value = 0;
    EXPECT_TRUE(full.tryGet(value));
    writer.join();

    queue_template<int> empty(1);
    std::thread reader([&] { empty.get(); });
    threadfunc::sleep(20);
    EXPECT_FALSE(empty.tryGet(value));
    EXPECT_TRUE(empty.tryPut(1));
    reader.join();
}

TEST(MessageQueue, OfCapacityZeroRefusesAllAndPutWaitsForEver) {
    // The writer waits for ever: queue and thread outlive the test, so that it leaves nothing half destroyed.
    static auto& queue = *new queue_template<int>(0);
    static std::atomic<bool> returned{false};
    EXPECT_FALSE(queue.tryPut(1));
    std::thread([] {
        queue.put(1);
        returned = true;
    }).detach();
    threadfunc::sleep(50);
    EXPECT_FALSE(returned);
    int value = 0;
    EXPECT_FALSE(queue.tryGet(value));
    EXPECT_EQ(countsOf(queue), (Counts{0, 0}));
}

TEST(MessageQueue, KeepsTheOrderAcrossManyStorageBlocks) {
    constexpr int kCount = 10000;  // a block holds 128
    queue_template<int> queue(kCount);
    fill(queue, kCount);
    for (int i = 1; i <= kCount; ++i) ASSERT_EQ(queue.get(), i);
}

TEST(MessageQueue, KeepsTheOrderBetweenTwoThreads) {
    constexpr int kCount = 20000;
    queue_template<int> queue(7);
    std::thread writer([&] {
        for (int i = 0; i < kCount; ++i) queue.put(i);
    });
    for (int i = 0; i < kCount; ++i) ASSERT_EQ(queue.get(), i);
    writer.join();
}

TEST(MessageQueue, HoldsValuesOfAnyCopyableType) {
    queue_template<std::string> queue(2);
    const std::string text(1000, 'x');
    queue.put(text);
    EXPECT_TRUE(queue.tryPut("short"));
    EXPECT_EQ(queue.get(), text);
    std::string value;
    EXPECT_TRUE(queue.tryGet(value));
    EXPECT_EQ(value, "short");
}

TEST(MessageQueue, OwnsItsValuesButNotWhatTheyPointTo) {
    const auto shared = std::make_shared<int>(1);
    int pointee = 1;
    {
        queue_template<std::shared_ptr<int>> values(3);
        queue_template<int*> pointers(3);
        values.put(shared);
        pointers.put(&pointee);
        pointers.put(nullptr);
        EXPECT_EQ(shared.use_count(), 2);
    }
    EXPECT_EQ(shared.use_count(), 1);
    EXPECT_EQ(pointee, 1);
}

TEST(MessageQueue, KeepsNoCopyOfAValueThatWasTaken) {
    const auto shared = std::make_shared<int>(1);
    queue_template<std::shared_ptr<int>> queue(3);
    std::shared_ptr<int> taken;
    queue.put(shared);
    queue.put(shared);
    EXPECT_TRUE(queue.tryGet(taken));
    taken = nullptr;
    queue.get();
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(MessageQueue, LargerThanTheSystemCountsHoldsWhatTheSystemCounts) {
    queue_template<int> queue(4000000000U);
    EXPECT_EQ(queue.space(), 2147483647);
    EXPECT_TRUE(queue.tryPut(1));
    EXPECT_EQ(countsOf(queue), (Counts{1, 2147483646}));
}

}  // namespace
