#pragma once
/// A socket that is not there: `recv` gives what an input says, in the pieces that it says, and `send` keeps what it is
/// given. The linker leads both calls here (--wrap), and allocations that may give nothing.

#include <optional>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fuzz {

/// The one stream that is read and written for the life of the object. One at a time, one thread.
class FedSocket {
public:
    /// Descriptor to hand to the code under test.
    static constexpr int kDescriptor = 1'000'000;

    /// Borrows `stream`, the bytes to come, and `pieces`, one number for each `recv`: 0 is interrupted, 255 is reset,
    /// 254 is an error, any other gives so many bytes at most. When they are used up, each `recv` gives all that it
    /// can. `new (std::nothrow)` of an array gives nothing for more than `memory` bytes.
    FedSocket(Bytes pieces, Bytes stream, std::size_t memory);
    ~FedSocket();
    FedSocket(const FedSocket&) = delete;
    FedSocket& operator=(const FedSocket&) = delete;

    /// The next packet of the stream as its length field has it, and the steps to the one behind it; none when the
    /// length is below 8 or the stream ends before the packet does.
    std::optional<Bytes> nextPacket();
    /// A reset, an error or no memory was given.
    bool failed() const { return failed_; }
    /// What `send` was given, all of it.
    const std::vector<std::uint8_t>& sent() const { return sent_; }

    ssize_t receive(void* buffer, std::size_t length);
    ssize_t transmit(const void* buffer, std::size_t length);
    bool mayAllocate(std::size_t size);

private:
    Bytes pieces, stream;
    std::size_t memory;
    std::size_t given = 0;        // of the stream, by recv
    std::size_t packetBegin = 0;  // of the packet that nextPacket gives
    std::vector<std::uint8_t> sent_;
    bool failed_ = false;
};

}  // namespace fuzz
