#include <sys/socket.h>
#include <unistd.h>

#include <new>
#include <utility>

#include "platform/linux/base/PacketQueue.h"
#include "platform/linux/base/ProprietarySocketCommon.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

namespace {

constexpr int kLinkPriority = 20;
constexpr const char* kOriginFile = "platform/linux/base/src/ProprietarySocketCommon";
constexpr int kReceiveOrigin = 71;
constexpr int kTransmitOrigin = 72;

/// What the two threads of a link share. The transmit thread frees it when it ends; it ends last, since it waits for
/// the end mark that is the receive thread's last act.
struct LinkStart {
    ProprietarySocketCommon* client;
    int fd;
    PacketQueue& txQueue;
    PacketQueue& rxQueue;
};

/// The next packet from the connection; null when there will be none.
PacketPtr readPacket(const LinkStart& link) {
    PacketPtr packet(new (std::nothrow) ProprietarySocketCommon::TPacket);
    if (packet && !link.client->receiveChunk(*packet, link.fd)) packet.reset();
    return packet;
}

std::uint32_t receivePackets(void* start) {
    const LinkStart& link = *static_cast<const LinkStart*>(start);
    PacketQueue& txQueue = link.txQueue;
    while (PacketPtr packet = readPacket(link))
        if (!link.rxQueue.put(packet)) break;
    // Senders first: the dispatch thread may be one of them, and it has to make room for the end mark.
    txQueue.close();
    link.rxQueue.end();
    txQueue.end();  // `link` is gone as soon as the mark is taken
    return 0;
}

std::uint32_t transmitPackets(void* start) {
    const std::unique_ptr<LinkStart> link(static_cast<LinkStart*>(start));
    // A failed write is not looked at: a broken connection shows on the receiving side, which ends the link.
    while (const PacketPtr packet = link->txQueue.take()) static_cast<void>(link->client->sendChunk(*packet, link->fd));
    return 0;
}

}  // namespace

ProprietarySocketCommon::~ProprietarySocketCommon() = default;

ProprietarySocketCommon::LinkRecord ProprietarySocketCommon::startLink(ProprietarySocketCommon* client, int fd,
                                                                       PacketQueue& txQueue, PacketQueue& rxQueue) {
    auto* const start = new (std::nothrow) LinkStart{client, fd, txQueue, rxQueue};
    if (start == nullptr) return {};
    LinkRecord link;
    link.transmitThread =
        threadfunc::ThreadCreate(kLinkPriority, transmitPackets, start, 0, kOriginFile, kTransmitOrigin);
    if (link.transmitThread == 0) {
        delete start;
        return {};
    }
    link.receiveThread = threadfunc::ThreadCreate(kLinkPriority, receivePackets, start, 0, kOriginFile, kReceiveOrigin);
    if (link.receiveThread == 0) {
        txQueue.end();  // in place of the receive thread
        threadfunc::threadJoin(link.transmitThread);
        return {};
    }
    link.linkFd = fd;
    return link;
}

void ProprietarySocketCommon::stopLink(LinkRecord& linkRecord) {
    const LinkRecord link = std::exchange(linkRecord, LinkRecord{});
    if (link.linkFd < 0) return;
    shutdown(link.linkFd, SHUT_RDWR);  // wakes whoever waits in recv or send
    threadfunc::threadJoin(link.receiveThread);
    threadfunc::threadJoin(link.transmitThread);
    close(link.linkFd);
}
