#include "platform/linux/base/PacketQueue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/support/Process.h"

using namespace sockettest;
using testsupport::waitFor;

namespace {

/// A queue with the packets 1 to `count` in it.
void fill(PacketQueue& queue, unsigned short count) {
    for (unsigned short command = 1; command <= count; ++command) {
        PacketPtr packet = counted(command);
        ASSERT_TRUE(queue.put(packet));
    }
}

/// True when the thread that runs `done` still waits after a while. Only a failing test depends on that while.
bool keepsWaiting(const std::atomic<bool>& done) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return !done;
}

TEST(PacketQueue, GivesPacketsAwayInOrder) {
    PacketQueue queue(3);
    queue.open();
    fill(queue, 3);
    EXPECT_EQ(queue.size(), 3);
    EXPECT_EQ(queue.space(), 0);
    for (const int command : {1, 2, 3}) EXPECT_EQ(queue.take()->getCommand(), command);
    EXPECT_EQ(CountedPacket::living(), 0);
    EXPECT_EQ(queue.space(), 3);
}

TEST(PacketQueue, TakesThePacketItIsGiven) {
    PacketQueue queue(2);
    PacketPtr put = counted(1), tried = counted(2);
    EXPECT_TRUE(queue.put(put));
    EXPECT_TRUE(queue.tryPut(tried));
    EXPECT_EQ(put, nullptr);
    EXPECT_EQ(tried, nullptr);
}

TEST(PacketQueue, TryPutLeavesThePacketWhenFull) {
    PacketQueue queue(1);
    queue.open();
    fill(queue, 1);
    PacketPtr packet = counted(2);
    EXPECT_FALSE(queue.tryPut(packet));
    EXPECT_EQ(packet->getCommand(), 2);
    EXPECT_EQ(queue.size(), 1);
}

TEST(PacketQueue, PutWaitsForRoomWhileOpen) {
    PacketQueue queue(1);
    queue.open();
    fill(queue, 1);
    std::atomic<bool> done{false};
    std::thread producer([&] {
        PacketPtr packet = counted(2);
        EXPECT_TRUE(queue.put(packet));
        done = true;
    });
    EXPECT_TRUE(keepsWaiting(done));
    EXPECT_EQ(queue.take()->getCommand(), 1);
    EXPECT_EQ(queue.take()->getCommand(), 2);
    producer.join();
}

TEST(PacketQueue, PutDoesNotWaitWhileClosed) {
    PacketQueue queue(1);
    fill(queue, 1);
    PacketPtr packet = counted(2);
    EXPECT_FALSE(queue.put(packet)) << "starts closed";
    EXPECT_EQ(packet->getCommand(), 2);
    queue.open();
    fill(queue, 1);
    queue.close();
    EXPECT_FALSE(queue.put(packet));
}

TEST(PacketQueue, ClosedQueueTakesPacketsWhileThereIsRoom) {
    PacketQueue queue(2);
    queue.open();
    queue.close();
    fill(queue, 2);
    EXPECT_EQ(queue.size(), 2);
}

// A sender that waited when its link ended waited for ever.
TEST(PacketQueue, ClosingReleasesAllThatWait) {
    PacketQueue queue(1);
    queue.open();
    fill(queue, 1);
    std::vector<std::thread> producers;
    std::atomic<int> refused{0};
    std::atomic<bool> done{false};
    for (unsigned short command = 2; command < 6; ++command)
        producers.emplace_back([&queue, &refused, &done, command] {
            PacketPtr packet = counted(command);
            if (!queue.put(packet) && packet) ++refused;
            done = true;
        });
    EXPECT_TRUE(keepsWaiting(done));
    queue.close();
    for (std::thread& producer : producers) producer.join();
    EXPECT_EQ(refused, 4);
    EXPECT_EQ(queue.size(), 1);
}

TEST(PacketQueue, EndMarkComesBehindThePackets) {
    PacketQueue queue(3);
    queue.open();
    fill(queue, 2);
    queue.end();
    EXPECT_EQ(queue.take()->getCommand(), 1);
    EXPECT_EQ(queue.take()->getCommand(), 2);
    EXPECT_EQ(queue.take(), nullptr);
}

TEST(PacketQueue, EndMarkWaitsForRoomAndReleasesProducersMeanwhile) {
    PacketQueue queue(1);
    queue.open();
    fill(queue, 1);
    std::atomic<bool> refused{false}, ended{false};
    std::thread producer([&] {
        PacketPtr packet = counted(2);
        refused = !queue.put(packet);
    });
    std::thread ender([&] {
        queue.end();
        ended = true;
    });
    producer.join();
    EXPECT_TRUE(refused);
    EXPECT_TRUE(keepsWaiting(ended));
    EXPECT_EQ(queue.take()->getCommand(), 1);
    EXPECT_EQ(queue.take(), nullptr);
    ender.join();
}

// Draining until the first end mark left the second one behind, which ended the next link's thread at once.
TEST(PacketQueue, DrainingDeletesAllBehindEndMarksToo) {
    PacketQueue queue(5);
    queue.end();
    fill(queue, 2);
    queue.end();
    queue.drain();
    EXPECT_EQ(queue.size(), 0);
    EXPECT_EQ(queue.space(), 5);
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST(PacketQueue, DrainingMakesRoomForWhoWaits) {
    PacketQueue queue(1);
    queue.open();
    fill(queue, 1);
    std::atomic<bool> done{false};
    std::thread producer([&] {
        PacketPtr packet = counted(2);
        EXPECT_TRUE(queue.put(packet));
        done = true;
    });
    EXPECT_TRUE(keepsWaiting(done));
    queue.drain();
    producer.join();
    EXPECT_EQ(CountedPacket::living(), queue.size());  // a producer that is quick enough has its packet drained, too
}

TEST(PacketQueue, OpeningEmptiesTheQueue) {
    PacketQueue queue(3);
    fill(queue, 1);
    queue.end();
    queue.open();
    EXPECT_EQ(queue.size(), 0);
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST(PacketQueue, WhatIsLeftGoesWithTheQueue) {
    {
        PacketQueue queue(3);
        fill(queue, 3);
        EXPECT_EQ(CountedPacket::living(), 3);
    }
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST(PacketQueue, ManyProducersLoseNothing) {
    constexpr int kProducers = 4, kPackets = 1000;
    PacketQueue queue(3);
    queue.open();
    std::vector<std::thread> producers;
    for (unsigned short number = 0; number < kProducers; ++number)
        producers.emplace_back([&queue, number] {
            for (int i = 0; i < kPackets; ++i) {
                PacketPtr packet = counted(number);
                EXPECT_TRUE(queue.put(packet));
            }
        });
    std::vector<int> taken(kProducers);
    for (int i = 0; i < kProducers * kPackets; ++i) ++taken.at(queue.take()->getCommand());
    for (std::thread& producer : producers) producer.join();
    EXPECT_EQ(taken, std::vector<int>(kProducers, kPackets));
    EXPECT_EQ(CountedPacket::living(), 0);
}

TEST(PacketQueue, ClosingAndOpeningUnderLoadStrandsNobody) {
    PacketQueue queue(2);
    std::atomic<bool> stop{false};
    std::vector<std::thread> producers;
    for (int i = 0; i < 3; ++i)
        producers.emplace_back([&] {
            while (!stop) {
                PacketPtr packet = counted(1);
                static_cast<void>(queue.put(packet));
            }
        });
    for (int round = 0; round < 1000; ++round) {
        queue.open();
        for (int i = 0; i < 5; ++i) queue.take();
        queue.close();
    }
    stop = true;
    queue.close();
    for (std::thread& producer : producers) producer.join();
    queue.drain();
    EXPECT_EQ(CountedPacket::living(), 0);
}

}  // namespace
