#include "platform/linux/base/PacketQueue.h"

using threadfunc::MutexLock;
using TPacket = ProprietarySocketCommon::TPacket;

PacketQueue::PacketQueue(unsigned capacity) : queue(capacity) {}

PacketQueue::~PacketQueue() { drain(); }

void PacketQueue::open() {
    drain();
    const MutexLock lock(gate);
    isOpen = true;
}

void PacketQueue::close() {
    const MutexLock lock(gate);
    isOpen = false;
    for (; waiting > 0; --waiting) retry.post();
}

void PacketQueue::end() {
    close();
    queue.put(nullptr);
}

bool PacketQueue::put(PacketPtr& packet) {
    while (!tryPut(packet))
        if (!waitForRoom()) return false;
    return true;
}

bool PacketQueue::tryPut(PacketPtr& packet) {
    if (!queue.tryPut(packet.get())) return false;
    static_cast<void>(packet.release());  // the consumer owns it now
    return true;
}

PacketPtr PacketQueue::take() {
    PacketPtr packet(queue.get());
    announceRoom();
    return packet;
}

void PacketQueue::drain() {
    for (TPacket* packet = nullptr; queue.tryGet(packet);) {
        const PacketPtr deleted(packet);
        announceRoom();
    }
}

bool PacketQueue::waitForRoom() {
    {
        const MutexLock lock(gate);
        if (queue.space() > 0) return true;  // the room came after the last attempt, and nobody will announce it again
        if (!isOpen) return false;
        ++waiting;
    }
    retry.wait();
    return true;
}

void PacketQueue::announceRoom() {
    const MutexLock lock(gate);
    if (waiting == 0) return;
    --waiting;
    retry.post();
}
