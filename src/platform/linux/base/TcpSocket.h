#pragma once
/// Sockets with an owner, and connecting them.

#include <netdb.h>

/// Owns a descriptor, or none (-1), and closes it.
class OwnedSocket {
public:
    /// Takes `descriptor`; -1 stands for none.
    explicit OwnedSocket(int descriptor) : fd(descriptor) {}
    /// Closes the descriptor, if there is one.
    ~OwnedSocket();
    OwnedSocket(const OwnedSocket&) = delete;
    OwnedSocket& operator=(const OwnedSocket&) = delete;

    /// The descriptor, still owned here; -1 when there is none.
    int get() const { return fd; }
    /// Gives the descriptor away; the caller closes it.
    int release();

private:
    int fd;
};

/// A new blocking socket for `address`, -1 when the system refuses. Programs started from here do not inherit it.
int openSocket(const addrinfo& address);

/// Starts connecting `fd` to `address` and returns at once: false when that has failed already, else true, and the
/// outcome is what `awaitConnect` returns. `fd` does not block until then.
bool beginConnect(int fd, const addrinfo& address);

/// Waits until `fd`, which began to connect, has come to an end with it; signals do not disturb the wait, `shutdown` of
/// `fd` by another thread ends it, also one that came before the wait. Returns true when a peer is at the other end;
/// `fd` blocks again then. A socket that met itself is not connected: the system may pick the very port that nobody
/// listens on as the near end.
bool awaitConnect(int fd);
