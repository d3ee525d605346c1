#pragma once
/// The root of the packet socket layer. Wire layout: docs/protocol.md.

#include <pthread.h>

#include <cstdint>

class PacketQueue;

/// The packet, how it travels on a stream socket, and the two threads that move packets of one connection.
class ProprietarySocketCommon {
public:
    /// Bytes of a packet's header: length (u32), command (u16), payload offset (u16), all big-endian.
    static constexpr std::uint16_t kHeaderBytes = 8;

    /// Client to server, and the answer back: one payload byte 0 asks, the payload of the answer is not looked at.
    static constexpr std::uint16_t CmdPing = 1;
    /// Server to client: the identity of the server application (ConnectionInfo.h).
    static constexpr std::uint16_t CmdConnectionInfo = 2;

    /// One packet, held as it goes on the wire. It has one owner at a time, and one thread at a time uses it.
    class TPacket {
    public:
        /// An empty packet to read into: no data, size 0, command 0, payload offset 8.
        TPacket();
        /// A packet with its header written and `payloadSize` bytes of payload for the caller to fill. Without memory
        /// for it, or with a payload so large that the length field cannot tell it, `data` is null and all else 0.
        TPacket(unsigned payloadSize, unsigned short command);
        /// Releases `data`. Virtual: who is handed a packet deletes it, whatever it was made as.
        virtual ~TPacket();
        TPacket(const TPacket&) = delete;
        TPacket& operator=(const TPacket&) = delete;

        /// The command id in host byte order.
        std::uint16_t getCommand() const { return command; }
        /// The first byte of the payload; null when there is no data or the payload would start behind its end.
        /// Owned by the packet.
        /// @{
        unsigned char* getPayload() { return data == nullptr || payloadOffset > size ? nullptr : data + payloadOffset; }
        const unsigned char* getPayload() const { return const_cast<TPacket*>(this)->getPayload(); }
        /// @}
        /// Bytes of the payload; 0 where `getPayload` is null.
        std::uint32_t getPayloadSize() const { return getPayload() == nullptr ? 0 : size - payloadOffset; }
        /// True when at least `minimumBytes` bytes can be read from `getPayload`, which is then not null. To be asked
        /// before a payload from a peer is read.
        [[nodiscard]] bool hasPayload(std::uint32_t minimumBytes) const {
            return getPayload() != nullptr && getPayloadSize() >= minimumBytes;
        }
        /// Prints one line a payload byte to standard output: index, decimal, hexadecimal, character.
        void dumpPayload() const;

        unsigned char* data;          ///< The whole packet, header included; made by array new, owned; may be null.
        std::uint32_t size;           ///< Bytes in `data`, as in the length field.
        std::uint16_t command;        ///< Command id.
        std::uint16_t payloadOffset;  ///< Where the payload starts in `data`; from a peer, so it may be any value.
    };

    /// Holds nothing and starts nothing.
    ProprietarySocketCommon() = default;
    /// Ends nothing: a link that was started is stopped before.
    virtual ~ProprietarySocketCommon();
    ProprietarySocketCommon(const ProprietarySocketCommon&) = delete;
    ProprietarySocketCommon& operator=(const ProprietarySocketCommon&) = delete;

    // Stream operations. They use nothing but the descriptor; one thread at a time reads and one writes a descriptor.
    // Signals do not end them.

    /// Reads one packet from `fd` into `packet`; waits for all of it. A buffer of the right size is used again.
    /// Returns false when the connection ended (silently when the peer closed or reset it, else after one line on
    /// standard output), when the length is below 8, or when there is no memory. Bytes already taken are lost, so the
    /// stream is of no use any more; unless the length itself could not be read, `packet` is then empty.
    /// Memory grows with the bytes that arrive, not with the length a peer promises.
    static bool receiveChunk(TPacket& packet, int fd);
    /// Reads exactly `count` bytes from `fd` to `buffer`; waits for all of them. Returns `count`, or 0 after a failure
    /// as above, and 0 at once for a `count` of 0.
    static unsigned receiveChunk(int fd, unsigned char* buffer, unsigned count);
    /// Writes `packet` to `fd` by one `send`; waits while the socket's buffer is full. Returns true when all of it
    /// went out; a short write is a failure and is not continued. A closed peer raises no signal.
    static bool sendChunk(TPacket& packet, int fd);

protected:
    /// The two threads of one connection and their socket.
    struct LinkRecord {
        pthread_t receiveThread = 0;   ///< 0: none
        pthread_t transmitThread = 0;  ///< 0: none
        std::int32_t linkFd = -1;      ///< -1: none
    };

    /// Starts the threads that move packets between the connected socket `fd` and the two open queues; `client` and
    /// the queues are borrowed until `stopLink` returns, the record takes `fd`. Returns at once; `linkFd` is -1, and
    /// `fd` still the caller's, when the threads could not be started.
    ///
    /// | thread   | ends when                                     | at its end                       |
    /// |----------|-----------------------------------------------|----------------------------------|
    /// | receive  | a read fails, which `stopLink` also provokes  | puts an end mark into both queues |
    /// | transmit | it takes the receive thread's end mark        |                                  |
    static LinkRecord startLink(ProprietarySocketCommon* client, int fd, PacketQueue& txQueue, PacketQueue& rxQueue);

    /// Shuts the connection down, joins both threads, closes the socket and empties the record; does nothing when
    /// `linkFd` is below 0. Waits; the receive thread may need somebody who takes from a full receive queue meanwhile.
    static void stopLink(LinkRecord& linkRecord);
};
