#pragma once
/// What a test can see of its own process, and waiting for something to happen.

#include <pthread.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>

namespace testsupport {

/// Generous limit for events that must come; only a failing test waits this long.
inline constexpr std::chrono::seconds kDeadline{30};

/// Waits until `condition` holds. Returns false when it still does not hold at the deadline.
[[nodiscard]] bool waitFor(const std::function<bool()>& condition,
                           std::chrono::milliseconds limit = std::chrono::milliseconds(kDeadline));

/// Sends the signal to the thread once a millisecond until `condition` holds; false at the deadline. Once is not enough
/// under ThreadSanitizer, which may lose or hold back a signal that comes just before a call that blocks.
[[nodiscard]] bool signalUntil(pthread_t thread, int signal, const std::function<bool()>& condition);

/// SIGUSR1 interrupts calls and is counted, nothing else, for the life of the object. One at a time.
class InterruptingSignal {
public:
    InterruptingSignal();
    ~InterruptingSignal();
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;
    /// How often it came since construction, on any thread.
    static int seen();

private:
    struct sigaction previous {};
};

/// Number of open descriptors of this process.
std::size_t openDescriptors();

/// Number of threads of this process.
std::size_t runningThreads();

/// `_exit(status)`, for forked processes; what they reached counts in a build that counts it.
[[noreturn]] void leave(int status);

/// True in builds with AddressSanitizer or ThreadSanitizer, where stacks and memory figures differ.
bool instrumentedBuild();

}  // namespace testsupport
