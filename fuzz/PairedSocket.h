#pragma once
/// A server without a network: `socket` gives one end of a pair, `connect` succeeds, and the other end is the server's.
/// The linker leads the calls here (--wrap), and the kit's `sleep` too, which then only lets others run.

#include <atomic>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fuzz {

/// The server's ends of all connections of one run. One object at a time; its members are for one thread.
class PairedServer {
public:
    PairedServer();
    ~PairedServer();
    PairedServer(const PairedServer&) = delete;
    PairedServer& operator=(const PairedServer&) = delete;

    /// Whether later attempts to connect are refused.
    std::atomic<bool> refuses{false};

    /// Writes to the newest connection; nothing when there is none or it is closed.
    void send(Bytes bytes);
    /// Waits a little for something to read.
    void await();
    void shutdownWriting();
    void close();
    /// Reads what has come, from all connections.
    void readAll();

    /// One connection.
    struct End {
        int descriptor;
        std::vector<std::uint8_t> written, received;
    };
    /// From the first to the newest. While the client lives more of them may come.
    const std::vector<End>& ends();

    /// Any thread: a new connection. Returns the client's end.
    int connectPair();

private:
    End* newest();
    std::vector<End> taken;
};

}  // namespace fuzz
