/// Queues, timers and locks under many threads at once, each round with new ones: what the checks of values do not
/// see, the sanitizers do.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/GlobalLock.h"
#include "sw_drv/RTkernel/linux/MessageQueue.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"
#include "tests/sw_drv/RTkernel/linux/ProbeTimer.h"

using kittest::awaitTimerPass;
using kittest::kNever;
using kittest::ProbeTimer;
using threadfunc::queue_template;
using threadfunc::timer_template;

namespace {

// ThreadSanitizer sees what values do not show.
int rounds() { return kittest::watchedByThreadSanitizer() ? 1000 : 100; }

/// Threads that do the same round at once, over and over. Each round has things of its own: the first thread makes them
/// before it and looks at them after it.
template <typename Things, typename Body, typename Check>
void inRounds(int threadCount, const Body& body, const Check& check) {
    std::optional<Things> things;
    std::barrier together(threadCount);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&, thread] {
            for (int round = 0; round < rounds(); ++round) {
                if (thread == 0) things.emplace(round);
                together.arrive_and_wait();
                body(*things, thread);
                together.arrive_and_wait();
                if (thread == 0) check(*things);
            }
        });
    for (std::thread& thread : threads) thread.join();
}

// --- Queues ------------------------------------------------------------------------------------------------------

constexpr int kWriters = 4;
constexpr int kEach = 12;

/// The numbers of the values that a reader got from each writer, in the order in which they came.
using Got = std::array<std::vector<int>, kWriters>;

struct SharedQueue {
    explicit SharedQueue(int number)
        : round(number), capacity(1 + number % 5), queue(static_cast<unsigned>(capacity)) {}

    void write(int writer) {
        for (int i = 0; i < kEach; ++i) {
            const int value = writer * kEach + i;
            if ((i + round) % 2 == 0 || !queue.tryPut(value)) queue.put(value);
        }
    }
    void read(Got& got) {
        for (int i = 0; i < kEach; ++i) {
            int value = 0;
            if ((i + round) % 2 == 0 || !queue.tryGet(value)) value = queue.get();
            got[static_cast<std::size_t>(value / kEach)].push_back(value % kEach);
        }
    }

    const int round;
    const int capacity;
    queue_template<int> queue;
    std::array<Got, kWriters> gots;
};

// Each value comes out once, and what one writer puts comes out in its order.
void expectAllInOrder(const std::array<Got, kWriters>& gots) {
    std::array<int, kWriters * kEach> seen{};
    for (const Got& got : gots)
        for (std::size_t writer = 0; writer < kWriters; ++writer)
            for (int before = -1; const int number : got[writer]) {
                ASSERT_LT(before, number);
                before = number;
                ++seen[writer * kEach + static_cast<std::size_t>(number)];
            }
    for (const int times : seen) ASSERT_EQ(times, 1);
}

TEST(QueueStorm, LosesDoublesAndReordersNothing) {
    inRounds<SharedQueue>(
        2 * kWriters,
        [](SharedQueue& shared, int thread) {
            if (thread < kWriters) shared.write(thread);
            if (thread >= kWriters) shared.read(shared.gots[static_cast<std::size_t>(thread - kWriters)]);
        },
        [](const SharedQueue& shared) {
            expectAllInOrder(shared.gots);
            EXPECT_EQ(shared.queue.size(), 0);
            EXPECT_EQ(shared.queue.space(), shared.capacity);
        });
}

struct QueueOfPointers {
    explicit QueueOfPointers(int /*round*/) {}
    queue_template<std::string*> queue{2};
};

TEST(QueueStorm, HandsOverWhatThePointersPointTo) {
    inRounds<QueueOfPointers>(
        4,
        [](QueueOfPointers& shared, int thread) {
            for (int i = 0; i < 3; ++i) {
                if (thread < 2) shared.queue.put(new std::string(100, static_cast<char>('a' + thread)));
                if (thread < 2) continue;
                const std::unique_ptr<std::string> got(shared.queue.get());
                EXPECT_EQ(*got, std::string(100, got->front()));
            }
        },
        [](const QueueOfPointers& shared) { EXPECT_EQ(shared.queue.size(), 0); });
}

// --- Timers ------------------------------------------------------------------------------------------------------

struct IdleTimer {
    explicit IdleTimer(int /*round*/) {}
    ProbeTimer timer;
};

std::size_t listedUntil(std::int32_t due) {
    const threadfunc::MutexLock lock(threadfunc::timerMutex());
    return threadfunc::timerListHead().popDue(due).size();
}

// Two threads that armed one timer once left it in the list twice, and the second entry outlived it.
TEST(TimerStorm, ArmedByManyThreadsIsListedOnce) {
    inRounds<IdleTimer>(
        4, [](IdleTimer& shared, int) { shared.timer.startOnce(kNever); },
        [](const IdleTimer&) { EXPECT_EQ(listedUntil(threadfunc::monotonicMilliseconds() + kNever), 1U); });
}

struct FillingTimer {
    explicit FillingTimer(int number) : round(number), timer(1, &queue, number) {}
    const int round;
    queue_template<int> queue{10};
    timer_template<int> timer;
};

TEST(TimerStorm, OfStartsStopsAndTriggersEndsWithTheLastStop) {
    inRounds<FillingTimer>(
        4,
        [](FillingTimer& shared, int thread) {
            for (int i = 0; i < 3; ++i) {
                if (thread == 0) shared.timer.startPeriodic(i % 2);
                if (thread == 1) shared.timer.stop();
                if (thread == 2) shared.timer.restartOnce();
                if (thread == 3) shared.timer.trigger();
                if (thread == 3) shared.timer.setValue(shared.round);
            }
        },
        [](FillingTimer& shared) {
            shared.timer.stop();
            int value = 0;
            while (shared.queue.tryGet(value)) EXPECT_EQ(value, shared.round);
            if (shared.round % 50 == 0) awaitTimerPass();
            EXPECT_EQ(shared.queue.size(), 0);
        });
}

// A start from within the expiry, one with no time at all, a stop now and then, and the queue dies at once.
TEST(TimerStorm, OfLivesAndDeathsTouchesNothingThatIsGone) {
    struct Nothing {
        explicit Nothing(int number) : round(number) {}
        const int round;
    };
    inRounds<Nothing>(
        4,
        [](const Nothing& shared, int thread) {
            const auto queue = std::make_unique<queue_template<int>>(3);
            ProbeTimer* self = nullptr;
            ProbeTimer again(0, [&self] { self->restartOnce(); });
            self = &again;
            timer_template<int> filling(0, queue.get(), thread);
            filling.startPeriodic((thread + shared.round) % 3);
            again.startOnce(shared.round % 2);
            if (shared.round % 5 == 0) threadfunc::sleep(1);
            if (shared.round % 7 == 0) again.stop();
        },
        [](const Nothing&) {});
    awaitTimerPass();
}

struct StoppedTimer {
    explicit StoppedTimer(int /*round*/) { timer.startPeriodic(0); }
    std::atomic<bool> stopped{false};
    std::atomic<int> late{0};
    ProbeTimer timer{0, [this] { late += stopped ? 1 : 0; }};
};

TEST(TimerStorm, OfOneTimerStoppedByManyRunsNoExpiryAfterAnyOfThem) {
    inRounds<StoppedTimer>(
        4,
        [](StoppedTimer& shared, int) {
            shared.timer.stop();
            shared.stopped = true;
        },
        [](const StoppedTimer& shared) { EXPECT_EQ(shared.late, 0); });
}

// --- Locks -------------------------------------------------------------------------------------------------------

struct Counter {
    explicit Counter(int /*round*/) {}
    int count = 0;
};

TEST(LockStorm, OfTheProcessWideLockKeepsThreadsApart) {
    inRounds<Counter>(
        4,
        [](Counter& shared, int thread) {
            threadfunc::globalLock();
            if (thread % 2 == 0) threadfunc::globalLock();
            ++shared.count;
            if (thread % 2 == 0) threadfunc::globalUnlock();
            threadfunc::globalUnlock();
        },
        [](const Counter& shared) { EXPECT_EQ(shared.count, 4); });
}

struct TwoUnits {
    explicit TwoUnits(int /*round*/) {}
    threadfunc::semaphore units{2};
};

TEST(LockStorm, OfASemaphoreLosesNoUnit) {
    inRounds<TwoUnits>(
        4,
        [](TwoUnits& shared, int thread) {
            for (int i = 0; i < 5; ++i) {
                if (thread % 2 == 0 || !shared.units.tryWait()) shared.units.wait();
                shared.units.post();
            }
        },
        [](const TwoUnits& shared) { EXPECT_EQ(shared.units.value(), 2); });
}

}  // namespace
