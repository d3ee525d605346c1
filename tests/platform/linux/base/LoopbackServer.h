#pragma once
/// The other end of a connection, for tests: it writes and reads plain bytes and knows nothing of packets.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sockettest {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of a text of hexadecimal pairs; blanks between them count nothing.
Bytes hex(const std::string& text);
/// `text` as bytes.
Bytes raw(const std::string& text);
/// The parts one behind the other.
Bytes operator+(const Bytes& front, const Bytes& back);

/// One connected socket, closed with the object.
class Peer {
public:
    explicit Peer(int descriptor) : fd(descriptor) {}
    ~Peer() { close(); }
    Peer(Peer&& other) noexcept;
    Peer& operator=(Peer&& other) noexcept;

    int descriptor() const { return fd; }
    /// Writes all bytes; false when the connection is gone.
    bool write(const Bytes& bytes) const;
    /// Exactly `count` bytes; fewer when the connection ends or nothing comes for a long time.
    Bytes read(std::size_t count) const;
    /// True when the other end has shut down: waits for that, reading what still comes.
    bool atEnd() const;
    /// True when a byte can be read now.
    bool hasBytes() const;
    void shutdownWriting() const;
    void close();
    /// Closes by a reset instead of an orderly end.
    void reset();

private:
    int fd;
};

/// Two ends of one stream without a network.
struct StreamPair {
    StreamPair();
    Peer near, far;
};

/// Listens on a free port of 127.0.0.1.
class LoopbackServer {
public:
    /// `backlog` and `receiveBufferBytes` (0: the system's) as in listen(2) and SO_RCVBUF.
    explicit LoopbackServer(int backlog = 16, int receiveBufferBytes = 0);
    ~LoopbackServer() { close(); }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return port_; }
    int descriptor() const { return fd; }
    /// The next connection; waits for it.
    Peer accept() const;
    /// True when a connection waits to be accepted.
    bool hasCaller() const;
    void close();

private:
    int fd;
    int port_;
};

/// A port of 127.0.0.1 on which nobody listens, kept free of others for the life of the object.
class UnusedPort {
public:
    UnusedPort();
    ~UnusedPort();
    UnusedPort(const UnusedPort&) = delete;
    UnusedPort& operator=(const UnusedPort&) = delete;

    int port() const { return port_; }
    /// Ends the silence: from now on connections are taken.
    void listenNow() const;

private:
    int fd;
    int port_;
};

}  // namespace sockettest
