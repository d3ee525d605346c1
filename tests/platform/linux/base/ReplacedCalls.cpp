#include "tests/platform/linux/base/ReplacedCalls.h"

#include <atomic>
#include <new>

namespace sockettest {

namespace {

std::atomic<ReplacedCalls*> current{nullptr};
std::atomic<pthread_t> ownThread{0};  // beside the object, which may die while the timer thread asks

}  // namespace

ReplacedCalls::ReplacedCalls() {
    ownThread = pthread_self();
    current = this;
}
ReplacedCalls::~ReplacedCalls() { current = nullptr; }

/// The replacement that stands in `member`, null when there is none.
template <typename Function>
const Function* replacement(Function Calls::*member) {
    const ReplacedCalls* const calls = current;
    return calls != nullptr && calls->*member ? &(calls->*member) : nullptr;
}

/// The same, null on other threads than that of the object.
template <typename Function>
const Function* replacementHere(Function Calls::*member) {
    return pthread_equal(ownThread, pthread_self()) != 0 ? replacement(member) : nullptr;
}

bool mayAllocate(std::size_t size) {
    const auto* const asked = replacement(&Calls::mayAllocate);
    return asked == nullptr || (*asked)(size);
}

}  // namespace sockettest

using sockettest::Calls;
using sockettest::replacement;
using sockettest::replacementHere;

extern "C" {

ssize_t __wrap_recv(int fd, void* buffer, std::size_t length, int flags) {
    const auto* const call = replacement(&Calls::recv);
    return call != nullptr ? (*call)(fd, buffer, length, flags) : __real_recv(fd, buffer, length, flags);
}

ssize_t __wrap_send(int fd, const void* buffer, std::size_t length, int flags) {
    const auto* const call = replacement(&Calls::send);
    return call != nullptr ? (*call)(fd, buffer, length, flags) : __real_send(fd, buffer, length, flags);
}

int __wrap_socket(int domain, int type, int protocol) {
    const auto* const call = replacement(&Calls::socket);
    return call != nullptr ? (*call)(domain, type, protocol) : __real_socket(domain, type, protocol);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    const auto* const call = replacement(&Calls::connect);
    return call != nullptr ? (*call)(fd, address, length) : __real_connect(fd, address, length);
}

int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    const auto* const call = replacement(&Calls::getaddrinfo);
    return call != nullptr ? (*call)(node, service, hints, result) : __real_getaddrinfo(node, service, hints, result);
}

// pthread_t threadfunc::ThreadCreate(int, ThreadFunction, void*, unsigned, const char*, int)
pthread_t __real__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(int, threadfunc::ThreadFunction, void*, unsigned,
                                                               const char*, int);
pthread_t __wrap__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(int priority, threadfunc::ThreadFunction function,
                                                               void* argument, unsigned stackSize,
                                                               const char* originFile, int originLine) {
    const auto* const asked = replacement(&Calls::mayCreate);
    if (asked != nullptr && !(*asked)({priority, stackSize, originFile, originLine})) return 0;
    return __real__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(priority, function, argument, stackSize, originFile,
                                                                originLine);
}

// Where `long` has 32 bits, the clocks of 64-bit times have names of their own.
#define SOCKETTEST_WRAP_CLOCKS(timeOfDay, clock)                                      \
    int __real_##timeOfDay(timeval* now, void* zone);                                 \
    int __wrap_##timeOfDay(timeval* now, void* zone) {                                \
        const auto* const call = replacementHere(&Calls::gettimeofday);               \
        if (call == nullptr) return __real_##timeOfDay(now, zone);                    \
        *now = (*call)();                                                             \
        return 0;                                                                     \
    }                                                                                 \
    int __real_##clock(clockid_t id, timespec* now);                                  \
    int __wrap_##clock(clockid_t id, timespec* now) {                                 \
        const auto* const call = replacementHere(&Calls::clock_gettime);              \
        if (call == nullptr || id != CLOCK_MONOTONIC) return __real_##clock(id, now); \
        *now = (*call)();                                                             \
        return 0;                                                                     \
    }
#if defined(__LP64__)
SOCKETTEST_WRAP_CLOCKS(gettimeofday, clock_gettime)
#else
SOCKETTEST_WRAP_CLOCKS(__gettimeofday64, __clock_gettime64)
#endif

// operator new(std::size_t, const std::nothrow_t&) and its array form, where size_t is `long` and where it is `int`.
#define SOCKETTEST_WRAP_NEW(name)                                                  \
    void* __real_##name(std::size_t, const std::nothrow_t&);                       \
    void* __wrap_##name(std::size_t size, const std::nothrow_t& tag) {             \
        return sockettest::mayAllocate(size) ? __real_##name(size, tag) : nullptr; \
    }
#if defined(__LP64__)
SOCKETTEST_WRAP_NEW(_ZnwmRKSt9nothrow_t)
SOCKETTEST_WRAP_NEW(_ZnamRKSt9nothrow_t)
#else
SOCKETTEST_WRAP_NEW(_ZnwjRKSt9nothrow_t)
SOCKETTEST_WRAP_NEW(_ZnajRKSt9nothrow_t)
#endif
}
