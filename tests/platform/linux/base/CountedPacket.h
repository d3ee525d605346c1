#pragma once
/// Packets that tell how many of them live.

#include <atomic>

#include "platform/linux/base/PacketQueue.h"

namespace sockettest {

using TPacket = ProprietarySocketCommon::TPacket;

class CountedPacket : public TPacket {
public:
    explicit CountedPacket(unsigned short commandId, unsigned payloadBytes = 0) : TPacket(payloadBytes, commandId) {
        ++count();
    }
    ~CountedPacket() override { --count(); }

    static int living() { return count(); }

private:
    static std::atomic<int>& count() {
        static std::atomic<int> living{0};
        return living;
    }
};

inline PacketPtr counted(unsigned short command) { return std::make_unique<CountedPacket>(command); }

}  // namespace sockettest
