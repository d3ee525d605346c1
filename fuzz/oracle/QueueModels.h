#pragma once
/// The kit's queue and the queue of packets, each beside a list that tells what must come out. What would wait for
/// ever is left out.

#include <deque>
#include <string>

#include "fuzz/Fuzz.h"
#include "platform/linux/base/PacketQueue.h"

namespace fuzz {

/// Values are texts, too long for the string object itself, so that a value used too late is found.
class CheckedQueue {
public:
    explicit CheckedQueue(unsigned bound) : capacity(bound), queue(bound) {}

    void apply(int operation, int number) {
        const std::string value = std::to_string(number) + " is a text of more than fifteen characters";
        std::string got = "untouched";
        const bool room = model.size() < capacity, any = !model.empty();
        if (operation == 0) check(queue.tryPut(value) == room);
        if (operation == 1 && room) queue.put(value);
        if (operation < 2 && room) model.push_back(value);
        if (operation == 2) check(queue.tryGet(got) == any && got == (any ? model.front() : "untouched"));
        if (operation == 3 && any) check(queue.get() == model.front());
        if (operation >= 2 && any) model.pop_front();
        check(queue.size() == static_cast<int>(model.size()));
        check(queue.space() == static_cast<int>(capacity - model.size()));
    }

private:
    unsigned capacity;
    threadfunc::queue_template<std::string> queue;
    std::deque<std::string> model;
};

class CheckedPacketQueue {
public:
    explicit CheckedPacketQueue(unsigned bound) : capacity(bound), queue(bound) {}

    void apply(int operation, std::uint16_t command) {
        const bool room = model.size() < capacity;
        switch (operation) {
            case 0:
            case 1:
                putOne(command, operation == 0 || (!room && isOpen));
                break;
            case 2:
                takeOne();
                break;
            case 3:
                queue.open();
                break;
            case 4:
                queue.close();
                break;
            case 5:
                if (room) queue.end();
                break;
            case 6:
                queue.drain();
                break;
            default:
                break;
        }
        if (operation < 2 && room) model.push_back(command);
        if (operation == 3 || operation == 6) model.clear();
        if (operation == 3) isOpen = true;
        if (operation == 4 || (operation == 5 && room)) isOpen = false;
        if (operation == 5 && room) model.push_back(kEndMark);
        check(queue.size() == static_cast<int>(model.size()));
        check(queue.space() == static_cast<int>(capacity - model.size()));
    }

private:
    static constexpr int kEndMark = -1;

    void putOne(std::uint16_t command, bool withoutWaiting) {
        const bool room = model.size() < capacity;
        PacketPtr packet = std::make_unique<ProprietarySocketCommon::TPacket>(4, command);
        check((withoutWaiting ? queue.tryPut(packet) : queue.put(packet)) == room);
        check((packet == nullptr) == room);
    }

    void takeOne() {
        if (model.empty()) return;
        const PacketPtr taken = queue.take();
        check((taken == nullptr ? kEndMark : taken->getCommand()) == model.front());
        model.pop_front();
    }

    unsigned capacity;
    PacketQueue queue;
    bool isOpen = false;
    std::deque<int> model;
};

}  // namespace fuzz
