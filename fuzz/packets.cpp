// Packets from a stream in arbitrary pieces, with interruptions, resets and errors between them: what comes out is what
// the stream holds, byte for byte, and reading ends where a packet is not whole. Sent again it is the same bytes.
// Input: number of pieces (modulo 64; from 192 on there is memory for any packet), pieces (FedSocket.h), stream.
#include "fuzz/FedSocket.h"
#include "platform/linux/base/ProprietarySocketCommon.h"

using Common = ProprietarySocketCommon;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t head = input.byte();
    const fuzz::Bytes pieces = input.bytes(head % 64);
    fuzz::FedSocket socket(pieces, input.bytes(size), head < 192 ? 4096 : SIZE_MAX);
    Common::TPacket packet;
    while (Common::receiveChunk(packet, fuzz::FedSocket::kDescriptor)) {
        const auto wanted = socket.nextPacket();
        fuzz::check(wanted && std::equal(wanted->begin(), wanted->end(), packet.data, packet.data + packet.size));
        fuzz::check(packet.getCommand() == (*wanted)[4] * 256 + (*wanted)[5]);
        const std::size_t offset = (*wanted)[6] * 256U + (*wanted)[7];
        const bool inside = offset <= wanted->size();
        fuzz::check(packet.getPayload() == (inside ? packet.data + offset : nullptr));
        fuzz::check(packet.getPayloadSize() == (inside ? wanted->size() - offset : 0));
        fuzz::check(Common::sendChunk(packet, fuzz::FedSocket::kDescriptor));
        fuzz::check(std::equal(wanted->begin(), wanted->end(), socket.sent().begin(), socket.sent().end()));
    }
    fuzz::check(socket.failed() || !socket.nextPacket());
    fuzz::check(packet.data == nullptr ? packet.size == 0 && packet.command == 0 : packet.size >= 8);
    return 0;
}
