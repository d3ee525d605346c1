#include <cstdio>
#include <limits>
#include <new>

#include "platform/linux/base/ByteOrder.h"
#include "platform/linux/base/ProprietarySocketCommon.h"

using TPacket = ProprietarySocketCommon::TPacket;

TPacket::TPacket() : data(nullptr), size(0), command(0), payloadOffset(kHeaderBytes) {}

TPacket::TPacket(unsigned payloadSize, unsigned short commandId)
    : data(nullptr), size(0), command(0), payloadOffset(0) {
    if (payloadSize > std::numeric_limits<std::uint32_t>::max() - kHeaderBytes) return;
    data = new (std::nothrow) unsigned char[std::size_t{payloadSize} + kHeaderBytes];
    if (data == nullptr) return;
    size = payloadSize + kHeaderBytes;
    command = commandId;
    payloadOffset = kHeaderBytes;
    byteorder::storeBig32(data, size);
    byteorder::storeBig16(data + 4, command);
    byteorder::storeBig16(data + 6, payloadOffset);
}

TPacket::~TPacket() { delete[] data; }

void TPacket::dumpPayload() const {
    const unsigned char* const payload = getPayload();
    const std::uint32_t count = getPayloadSize();
    for (std::uint32_t i = 0; i < count; ++i) {
        const unsigned byte = payload[i];
        // 127 is shown as itself too, as in every dump so far; a terminal shows nothing for it.
        const int shown = byte >= 32 && byte <= 127 ? static_cast<int>(byte) : '.';
        std::printf("%4u: %3u - %02X : '%c'\n", static_cast<unsigned>(i), byte, byte, shown);
    }
}
