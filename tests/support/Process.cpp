#include "tests/support/Process.h"

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

// Only builds that count what the tests reach have it.
extern "C" [[gnu::weak]] void __gcov_dump();  // NOLINT(bugprone-reserved-identifier): the compiler's own name

namespace testsupport {

namespace {

std::size_t entriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::atomic<int> signalsSeen{0};

}  // namespace

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool signalUntil(pthread_t thread, int signal, const std::function<bool()>& condition) {
    return waitFor([&] {
        if (condition()) return true;
        pthread_kill(thread, signal);
        return false;
    });
}

InterruptingSignal::InterruptingSignal() {
    signalsSeen = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsSeen; };
    sigaction(SIGUSR1, &action, &previous);
}

InterruptingSignal::~InterruptingSignal() { sigaction(SIGUSR1, &previous, nullptr); }

int InterruptingSignal::seen() { return signalsSeen; }

std::size_t openDescriptors() {
    return entriesOf("/proc/self/fd") - 1;  // less the one that reads the folder
}

void leave(int status) {
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(status);
}

std::size_t runningThreads() { return entriesOf("/proc/self/task"); }

bool instrumentedBuild() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return true;
#else
    return false;
#endif
#else
    return false;
#endif
}

}  // namespace testsupport
