#pragma once
/// Packets on their way from one thread to another, with an owner on both sides.

#include <cstdint>
#include <memory>

#include "platform/linux/base/ProprietarySocketCommon.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

/// A packet and its one owner.
using PacketPtr = std::unique_ptr<ProprietarySocketCommon::TPacket>;

/// A bounded queue of packets that does not let a producer wait for a consumer that is gone: only an open queue makes
/// a producer wait for room. Any number of producers, one consumer; all members but the destructor may be called by
/// any thread. What is left in the queue goes with it.
///
/// The end mark, a null pointer, tells the consumer to end. `end` puts it, `take` returns it.
class PacketQueue {
public:
    /// Holds at most `capacity` packets and end marks. Starts closed.
    explicit PacketQueue(unsigned capacity);
    /// Deletes all that is in the queue; nobody uses it any more.
    ~PacketQueue();
    PacketQueue(const PacketQueue&) = delete;
    PacketQueue& operator=(const PacketQueue&) = delete;

    /// Empties the queue, stale end marks included, and opens it.
    void open();
    /// From now on nobody waits in `put`; who waits there already comes back. Returns at once.
    void close();
    /// Closes the queue and puts the end mark behind what is in it; waits for room, so the consumer must still run.
    void end();

    /// Takes `packet`, which is null then. Waits while an open queue is full; returns false, and leaves `packet` with
    /// the caller, when the queue is full and closed.
    [[nodiscard]] bool put(PacketPtr& packet);
    /// Takes `packet` if there is room, which is null then; returns false at once, and leaves it, when there is none.
    [[nodiscard]] bool tryPut(PacketPtr& packet);

    /// Waits for the oldest packet and gives it away. Null is the end mark.
    PacketPtr take();
    /// Deletes all that is in the queue. Returns at once.
    void drain();

    /// Packets and end marks in the queue: a glimpse, other threads may have changed it already.
    int size() const { return queue.size(); }
    /// Room for more of them: a glimpse too.
    int space() const { return queue.space(); }

private:
    /// Returns true when it is worth trying again, false when the queue is full and closed.
    bool waitForRoom() EXCLUDES(gate);
    /// Lets one of the waiting producers try again.
    void announceRoom() EXCLUDES(gate);

    threadfunc::queue_template<ProprietarySocketCommon::TPacket*> queue;
    threadfunc::mutex gate;  // the queue's own lock may be taken under it
    bool isOpen GUARDED_BY(gate) = false;
    std::uint32_t waiting GUARDED_BY(gate) = 0;
    threadfunc::semaphore retry{0};  // one unit for each producer that no longer counts as waiting
};
