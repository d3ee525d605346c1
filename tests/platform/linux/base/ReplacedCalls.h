#pragma once
/// Calls of the code under test that a test can look at, or let fail. The linker leads them here (--wrap).

#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstddef>
#include <ctime>
#include <functional>

#include "sw_drv/RTkernel/linux/Thread.h"

namespace sockettest {

/// One call of `ThreadCreate`.
struct ThreadRequest {
    int priority;
    unsigned stackSize;
    const char* originFile;
    int originLine;
};

/// What runs in place of each call; an empty function stands for the call itself. Changed only while no thread of the
/// code under test runs.
struct Calls {
    std::function<ssize_t(int, void*, std::size_t, int)> recv;
    std::function<ssize_t(int, const void*, std::size_t, int)> send;
    std::function<int(int, int, int)> socket;
    std::function<int(int, const sockaddr*, socklen_t)> connect;
    std::function<int(const char*, const char*, const addrinfo*, addrinfo**)> getaddrinfo;
    /// The clocks are replaced on the thread of the object alone: the timer thread always runs.
    std::function<timeval()> gettimeofday;
    /// For CLOCK_MONOTONIC.
    std::function<timespec()> clock_gettime;
    /// Returns false to let the thread not be created.
    std::function<bool(const ThreadRequest&)> mayCreate;
    /// Returns false to let `new (std::nothrow)` of so many bytes give nothing.
    std::function<bool(std::size_t)> mayAllocate;
};

/// Replaces calls for the life of the object. One at a time.
class ReplacedCalls : public Calls {
public:
    ReplacedCalls();
    ~ReplacedCalls();
    ReplacedCalls(const ReplacedCalls&) = delete;
    ReplacedCalls& operator=(const ReplacedCalls&) = delete;
};

}  // namespace sockettest

// The calls themselves, for a replacement to fall back on.
extern "C" {
ssize_t __real_recv(int fd, void* buffer, std::size_t length, int flags);
ssize_t __real_send(int fd, const void* buffer, std::size_t length, int flags);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __real_getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result);
}
