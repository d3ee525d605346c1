#include "app/EventRing.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/support/Process.h"

using namespace CANFlasher;

namespace {

using Event = std::pair<std::uint32_t, std::uint32_t>;

std::vector<Event> handled;  // what recordEvent was called with
void recordEvent(std::uint32_t id, std::uint32_t parameter) { handled.emplace_back(id, parameter); }

class EventRingTest : public testing::Test {
protected:
    EventRingTest() {
        handled.clear();
        ring.setEventHandler(recordEvent);
    }

    /// All events that wait, taken without the handler.
    std::vector<Event> drain() {
        std::vector<Event> events;
        std::uint32_t parameter = 0;
        while (const std::uint32_t id = ring.takeEvent(parameter)) events.emplace_back(id, parameter);
        return events;
    }

    EventRing ring;
};

TEST_F(EventRingTest, StartsEmpty) {
    EXPECT_EQ(ring.eventWaiting(), 0U);
    EXPECT_EQ(ring.dispatchEvent(), 0U);
    CurrentEvent current{1, 2, 3};
    EXPECT_EQ(ring.currentEvent(current), 0U);
    EXPECT_TRUE(handled.empty());
}

TEST_F(EventRingTest, SettingUpAnswersOne) {
    EXPECT_EQ(ring.initEvents(), 1U);
    EXPECT_EQ(ring.setEventHandler(recordEvent), 1U);
}

TEST_F(EventRingTest, DispatchCallsTheHandlerOncePerEventInOrder) {
    EXPECT_EQ(ring.postEvent(0, 21, 7), 1U);
    EXPECT_EQ(ring.postEvent(0, 4000000000U, 4294967295U), 1U);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(handled, (std::vector<Event>{{21, 7}}));
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(handled, (std::vector<Event>{{21, 7}, {4000000000U, 4294967295U}}));
    EXPECT_EQ(ring.dispatchEvent(), 0U);
    EXPECT_EQ(handled.size(), 2U);
}

TEST_F(EventRingTest, DispatchWithoutHandlerStillTakesTheEvent) {
    ring.setEventHandler(nullptr);
    ring.postEvent(0, 21, 7);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(ring.dispatchEvent(), 0U);
    CurrentEvent current;
    EXPECT_EQ(ring.currentEvent(current), 1U);
    EXPECT_EQ(current.id, 21U);
}

TEST_F(EventRingTest, OnlyQueueZeroExists) {
    EXPECT_EQ(ring.postEvent(1, 21, 7), 0U);
    EXPECT_EQ(ring.postEvent(0xFFFFFFFFU, 21, 7), 0U);
    EXPECT_EQ(ring.eventWaiting(), 0U);
    EXPECT_EQ(ring.dispatchEvent(), 0U);

    ring.postEvent(0, 21, 7);
    std::uint32_t parameter = 99;
    EXPECT_EQ(ring.takeEvent(1, parameter), 0U);
    EXPECT_EQ(parameter, 99U);
    EXPECT_EQ(ring.takeEvent(0, parameter), 21U);
    EXPECT_EQ(parameter, 7U);
}

TEST_F(EventRingTest, RefusesTheIdThatMarksFreeSlots) {
    EXPECT_EQ(ring.postEvent(0, 0, 7), 0U);
    EXPECT_EQ(ring.dispatchEvent(), 0U);
    EXPECT_EQ(ring.postEvent(0, 21, 8), 1U);
    EXPECT_EQ(drain(), (std::vector<Event>{{21, 8}}));
}

TEST_F(EventRingTest, HoldsTwoHundredEventsAndDropsTheNext) {
    for (std::uint32_t number = 1; number <= 200; ++number) EXPECT_EQ(ring.postEvent(0, number, number + 1000), 1U);
    EXPECT_EQ(ring.postEvent(0, 201, 1201), 0U);
    const std::vector<Event> events = drain();
    ASSERT_EQ(events.size(), 200U);
    for (std::uint32_t number = 1; number <= 200; ++number) EXPECT_EQ(events[number - 1], Event(number, number + 1000));
    EXPECT_EQ(ring.postEvent(0, 202, 0), 1U);
    EXPECT_EQ(drain(), (std::vector<Event>{{202, 0}}));
}

TEST_F(EventRingTest, AFullRingHasRoomAgainAfterOneDispatch) {
    for (std::uint32_t number = 1; number <= 200; ++number) ring.postEvent(0, number, 0);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(ring.postEvent(0, 201, 0), 1U);
    EXPECT_EQ(ring.postEvent(0, 202, 0), 0U);
    EXPECT_EQ(drain().back().first, 201U);
}

TEST_F(EventRingTest, KeepsTheOrderAcrossManyWraps) {
    std::uint32_t posted = 0;
    std::uint32_t taken = 0;
    for (std::uint32_t round = 0; round < 1000; ++round) {
        for (std::uint32_t i = 0; i < 1 + round % 7; ++i) {
            ++posted;
            ASSERT_EQ(ring.postEvent(0, posted, posted + 5), 1U);
        }
        for (const Event& event : drain()) {
            ++taken;
            ASSERT_EQ(event, Event(taken, taken + 5));
        }
        ASSERT_EQ(taken, posted);
    }
}

TEST_F(EventRingTest, TakeHandsOutTheParameterWithoutCallingTheHandler) {
    ring.postEvent(0, 5, 6);
    std::uint32_t parameter = 0;
    EXPECT_EQ(ring.takeEvent(parameter), 5U);
    EXPECT_EQ(parameter, 6U);
    EXPECT_TRUE(handled.empty());
    CurrentEvent current;
    EXPECT_EQ(ring.currentEvent(current), 1U);
    EXPECT_EQ(current.id, 5U);
    EXPECT_EQ(current.parameter, 6U);
}

TEST_F(EventRingTest, TakeFromAnEmptyRingLeavesTheParameter) {
    std::uint32_t parameter = 99;
    EXPECT_EQ(ring.takeEvent(parameter), 0U);
    EXPECT_EQ(ring.takeEvent(0, parameter), 0U);
    EXPECT_EQ(parameter, 99U);
}

TEST_F(EventRingTest, CurrentEventIsTheOneTakenLastAndHasAClearedExtraWord) {
    ring.postEvent(0, 5, 6);
    ring.postEvent(0, 7, 8);
    ring.dispatchEvent();
    CurrentEvent current{0, 0, 77};
    EXPECT_EQ(ring.currentEvent(current), 1U);
    EXPECT_EQ(current.id, 5U);
    EXPECT_EQ(current.parameter, 6U);
    EXPECT_EQ(current.extra, 0U);
    ring.dispatchEvent();
    ring.dispatchEvent();  // finds nothing and changes nothing
    EXPECT_EQ(ring.currentEvent(current), 1U);
    EXPECT_EQ(current.id, 7U);
}

TEST_F(EventRingTest, WaitingLooksWithoutTaking) {
    ring.postEvent(0, 5, 6);
    EXPECT_EQ(ring.eventWaiting(), 1U);
    EXPECT_EQ(ring.eventWaiting(), 1U);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(ring.eventWaiting(), 0U);
}

TEST_F(EventRingTest, ATakenEventIsNotDispatchedAgain) {
    std::uint32_t parameter = 0;
    ring.postEvent(0, 5, 6);
    ring.takeEvent(parameter);
    EXPECT_EQ(ring.dispatchEvent(), 0U) << "the pending flag still stands, the slot decides";
    ring.postEvent(0, 7, 8);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(handled, (std::vector<Event>{{7, 8}}));
}

TEST_F(EventRingTest, InitForgetsEventsCurrentEventAndIndicesButNotTheHandler) {
    ring.postEvent(0, 5, 6);
    ring.dispatchEvent();
    for (std::uint32_t number = 1; number <= 150; ++number) ring.postEvent(0, number, 0);
    ring.initEvents();
    EXPECT_EQ(ring.eventWaiting(), 0U);
    EXPECT_EQ(ring.dispatchEvent(), 0U);
    CurrentEvent current;
    EXPECT_EQ(ring.currentEvent(current), 0U);
    EXPECT_EQ(current.id, 0U);
    EXPECT_EQ(current.parameter, 0U);

    handled.clear();
    ring.postEvent(0, 9, 10);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(handled, (std::vector<Event>{{9, 10}}));
}

TEST_F(EventRingTest, InitFreesEverySlot) {
    while (ring.postEvent(0, 5, 6) == 1) {
    }
    ring.initEvents();
    EXPECT_EQ(ring.eventWaiting(), 0U);
    std::vector<Event> posted;
    for (std::uint32_t number = 1; number <= 200; ++number) posted.emplace_back(number, 7);
    for (const auto& [id, parameter] : posted) EXPECT_EQ(ring.postEvent(0, id, parameter), 1U);
    EXPECT_EQ(ring.postEvent(0, 201, 7), 0U);
    EXPECT_EQ(drain(), posted);
}

/// Runs a function on a thread of its own while this thread holds the process-wide lock.
class UnderTheGlobalLock {
public:
    explicit UnderTheGlobalLock(std::function<void()> probe) {
        threadfunc::globalLock();
        other = std::thread([this, run = std::move(probe)] {
            run();
            finished = true;
        });
    }
    ~UnderTheGlobalLock() {
        threadfunc::globalUnlock();
        other.join();
    }
    UnderTheGlobalLock(const UnderTheGlobalLock&) = delete;
    UnderTheGlobalLock& operator=(const UnderTheGlobalLock&) = delete;

    bool waits() {
        return !testsupport::waitFor([this] { return finished.load(); }, std::chrono::milliseconds(30));
    }
    bool returns() {
        return testsupport::waitFor([this] { return finished.load(); });
    }

private:
    std::atomic<bool> finished{false};
    std::thread other;
};

TEST_F(EventRingTest, DispatchOfNothingPendingReturnsWithoutTheLock) {
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).returns());
    ring.postEvent(0, 5, 6);
    ring.dispatchEvent();
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).waits()) << "finds the ring empty";
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).returns()) << "which cleared the flag";
}

TEST_F(EventRingTest, InitClearsThePendingFlagOfAFullRing) {
    while (ring.postEvent(0, 5, 6) == 1) {
    }
    ring.initEvents();
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).returns())
        << "a flag that still stands makes it ask for the lock";
    EXPECT_TRUE(handled.empty());
}

TEST_F(EventRingTest, WaitingClearsThePendingFlagOfAnEmptyRing) {
    ring.postEvent(0, 5, 6);
    ring.dispatchEvent();
    ring.eventWaiting();
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).returns());
}

TEST_F(EventRingTest, TakingFromAnEmptyRingClearsThePendingFlag) {
    std::uint32_t parameter = 0;
    ring.postEvent(0, 5, 6);
    ring.dispatchEvent();
    EXPECT_EQ(ring.takeEvent(parameter), 0U);
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.dispatchEvent(), 0U); }).returns());
}

TEST_F(EventRingTest, TakeDoesNotTestThePendingFlag) {
    std::uint32_t parameter = 0;
    EXPECT_TRUE(UnderTheGlobalLock([&] { EXPECT_EQ(ring.takeEvent(parameter), 0U); }).waits());
}

TEST_F(EventRingTest, EverySlotAccessTakesTheProcessWideLock) {
    CurrentEvent current;
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.postEvent(0, 5, 6); }).waits());
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.dispatchEvent(); }).waits());
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.currentEvent(current); }).waits());
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.eventWaiting(); }).waits());
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.setEventHandler(recordEvent); }).waits());
    EXPECT_TRUE(UnderTheGlobalLock([&] { ring.initEvents(); }).waits());
}

EventRing* askingRing = nullptr;
bool lockWasFree = false;
void askFromAnotherThread(std::uint32_t, std::uint32_t) {
    std::thread([] { lockWasFree = askingRing->postEvent(0, 9, 9) == 1; }).join();
}

TEST_F(EventRingTest, TheHandlerRunsWithoutTheLock) {
    askingRing = &ring;
    lockWasFree = false;
    ring.setEventHandler(askFromAnotherThread);
    ring.postEvent(0, 5, 6);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_TRUE(lockWasFree);
}

CurrentEvent seenByTheHandler;
std::vector<std::uint32_t> answersToTheHandler;
void useTheRing(std::uint32_t, std::uint32_t) {
    answersToTheHandler = {askingRing->currentEvent(seenByTheHandler), askingRing->postEvent(0, 9, 9),
                           askingRing->postEvent(0, 9, 9)};
}

TEST_F(EventRingTest, TheHandlerFindsItsEventCurrentAndItsSlotFree) {
    askingRing = &ring;
    ring.setEventHandler(useTheRing);
    for (std::uint32_t number = 1; number <= 200; ++number) ring.postEvent(0, number, 70 + number);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    EXPECT_EQ(seenByTheHandler.id, 1U);
    EXPECT_EQ(seenByTheHandler.parameter, 71U);
    EXPECT_EQ(answersToTheHandler, (std::vector<std::uint32_t>{1, 1, 0})) << "current; one free slot, not two";
}

TEST_F(EventRingTest, AThreadThatHoldsTheLockMayPostAndDispatch) {
    threadfunc::globalLock();
    EXPECT_EQ(ring.postEvent(0, 5, 6), 1U);
    EXPECT_EQ(ring.dispatchEvent(), 1U);
    threadfunc::globalUnlock();
}

TEST(ProcessEventRing, IsOneRingBehindFreeFunctions) {
    handled.clear();
    EXPECT_EQ(initEvents(), 1U);
    EXPECT_EQ(setEventHandler(recordEvent), 1U);
    EXPECT_EQ(eventWaiting(), 0U);
    EXPECT_EQ(postEvent(0, 21, 1), 1U);
    EXPECT_EQ(postEvent(1, 21, 1), 0U);
    EXPECT_EQ(eventWaiting(), 1U);
    EXPECT_EQ(dispatchEvent(), 1U);
    EXPECT_EQ(handled, (std::vector<Event>{{21, 1}}));
    CurrentEvent current;
    EXPECT_EQ(currentEvent(current), 1U);
    EXPECT_EQ(current.id, 21U);
    std::uint32_t parameter = 0;
    postEvent(0, 3, 4);
    EXPECT_EQ(takeEvent(parameter), 3U);
    EXPECT_EQ(parameter, 4U);
    postEvent(0, 5, 6);
    EXPECT_EQ(takeEvent(0, parameter), 5U);
    EXPECT_EQ(takeEvent(1, parameter), 0U);
    EXPECT_EQ(initEvents(), 1U);
    EXPECT_EQ(currentEvent(current), 0U);
    setEventHandler(nullptr);
}

// A storm of signals once hung the process: a handler that came while its own thread was half-way in the lock waited
// for itself. Later one handler inside the other left a hole in the ring, and a post between "the slot is free" and
// "clear the pending flag" was never seen.
constexpr std::uint32_t kEnoughSignals = 4'000;
constexpr std::size_t kMostSignals = 400'000;  // a signal that is pending already is not sent twice
EventRing stormRing;
std::atomic<std::uint32_t> signalsHandled{0};
std::uint8_t accepted[kMostSignals];
std::uint8_t dispatched[kMostSignals];

void postFromSignal(int) {
    const std::uint32_t number = signalsHandled.fetch_add(1);
    accepted[number] = static_cast<std::uint8_t>(stormRing.postEvent(0, EvtShutdown, number));
}
constexpr std::uint32_t kOwnEvent = 1;
std::uint32_t ownDispatched = 0;

void countDispatched(std::uint32_t id, std::uint32_t number) {
    if (id == kOwnEvent) {
        ++ownDispatched;
    } else {
        ++dispatched[number];
    }
}

/// Sends both signals in turn until enough were handled, for ten seconds at most; ends the process when the target no
/// longer handles any.
void sendStorm(pthread_t target, std::atomic<bool>& over) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (std::size_t sent = 0;
         signalsHandled < kEnoughSignals && sent + 2 <= kMostSignals && std::chrono::steady_clock::now() < end;
         sent += 2) {
        const std::uint32_t before = signalsHandled;
        pthread_kill(target, SIGINT);
        pthread_kill(target, SIGTERM);
        if (sent % 64 != 0 || testsupport::waitFor([&] { return signalsHandled != before; })) continue;
        std::fputs("the thread hangs in the event ring\n", stderr);
        std::_Exit(1);
    }
    over = true;
}

TEST(EventRingStorm, EveryAcceptedPostComesOutExactlyOnce) {
    struct sigaction action {};
    struct sigaction oldInterrupt {};
    struct sigaction oldTerminate {};
    action.sa_handler = postFromSignal;
    sigaction(SIGINT, &action, &oldInterrupt);
    sigaction(SIGTERM, &action, &oldTerminate);
    stormRing.setEventHandler(countDispatched);

    std::atomic<bool> over{false};
    std::thread sender(sendStorm, pthread_self(), std::ref(over));
    std::uint32_t ownPosts = 0;
    while (!over) {
        stormRing.dispatchEvent();
        ownPosts += stormRing.postEvent(0, kOwnEvent, 0);  // a handler may interrupt this as well
        stormRing.eventWaiting();
    }
    sender.join();
    while (stormRing.dispatchEvent() != 0) {
    }
    sigaction(SIGINT, &oldInterrupt, nullptr);
    sigaction(SIGTERM, &oldTerminate, nullptr);

    EXPECT_GT(signalsHandled, 0U);
    for (std::uint32_t number = 0; number < signalsHandled; ++number)
        ASSERT_EQ(dispatched[number], accepted[number]) << "event " << number << " of " << signalsHandled;
    EXPECT_EQ(ownDispatched, ownPosts);
    EXPECT_EQ(stormRing.eventWaiting(), 0U);
}

}  // namespace
