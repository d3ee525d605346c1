#pragma once
/// Sockets with an owner, and connecting them.

#include <netdb.h>

/// Owns a descriptor, or none (-1), and closes it.
class OwnedSocket {
public:
    explicit OwnedSocket(int descriptor) : fd(descriptor) {}
    ~OwnedSocket();
    OwnedSocket(const OwnedSocket&) = delete;
    OwnedSocket& operator=(const OwnedSocket&) = delete;

    int get() const { return fd; }
    /// Gives the descriptor away; the caller closes it.
    int release();

private:
    int fd;
};

/// A new blocking socket for `address`, -1 when the system refuses. Programs started from here do not inherit it.
int openSocket(const addrinfo& address);

/// Connects `fd` to `address`; waits for the outcome, signals do not disturb it. `shutdown` of `fd` by another thread
/// ends the wait. Returns true when a peer is at the other end. A socket that met itself is not connected: the system
/// may pick the very port that nobody listens on as the near end.
bool connectSocket(int fd, const addrinfo& address);
