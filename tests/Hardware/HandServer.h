#pragma once
/// A server whose every byte a test writes and reads by hand. No threads: the calling test plays the server.

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "tests/support/Process.h"

namespace testsupport {

using Bytes = std::vector<std::uint8_t>;

/// Bytes given as numbers, then the characters of `text`, then `zeros` zero bytes.
Bytes bytes(std::initializer_list<int> numbers, std::string_view text = {}, std::size_t zeros = 0);

/// A CmdStatus of mode 0, address 0x2A and serial 1 in `state` at `progress` percent.
Bytes statusPacket(int state, int progress);

/// One end of an accepted connection; closes with the object.
class HandConnection {
public:
    explicit HandConnection(int socket = -1) : descriptor(socket) {}
    ~HandConnection() { close(); }
    HandConnection(HandConnection&& other) noexcept;
    HandConnection& operator=(HandConnection&& other) noexcept;

    bool isOpen() const { return descriptor >= 0; }
    /// Writes all of `data`. False when the peer does not take it.
    bool write(const Bytes& data);
    /// Reads `count` bytes; fewer when the peer closes or the deadline passes first.
    Bytes read(std::size_t count, std::chrono::milliseconds limit = kDeadline);
    /// Reads one packet as its length field tells it; what was read when it does not come whole.
    Bytes readPacket(std::chrono::milliseconds limit = kDeadline);
    /// True when the peer closes, and sends nothing before that.
    bool endsByPeer(std::chrono::milliseconds limit = kDeadline);
    /// True when the peer closes, whatever it sends before that.
    bool endsAfterMore(std::chrono::milliseconds limit = kDeadline);
    /// True when nothing comes, not even the end, for all of `length`.
    bool isSilentFor(std::chrono::milliseconds length);
    void close();

private:
    int descriptor;
};

/// A socket on a free TCP port of 127.0.0.1.
class HandServer {
public:
    enum class Start { listening, later };
    explicit HandServer(Start start = Start::listening);
    ~HandServer();
    HandServer(const HandServer&) = delete;
    HandServer& operator=(const HandServer&) = delete;

    int port() const { return portNumber; }
    /// Listens from now on; until then connects are refused. Nothing but a system call.
    void listen();
    /// The next connection; a closed one when none comes.
    HandConnection accept(std::chrono::milliseconds limit = kDeadline);
    /// True when nobody connects for all of `length`.
    bool isLeftAloneFor(std::chrono::milliseconds length);

private:
    int descriptor;
    int portNumber;
};

}  // namespace testsupport
