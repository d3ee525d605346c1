#include "sim/Background.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace sim {

namespace {

Failure systemFailure(const char* call) {
    return {1, std::string(call) + ": " + std::generic_category().message(errno)};
}

std::atomic<int> stopWriteEnd{-1};  // written by StopSignals::install, read by the handler

// Async-signal-safe: one write into a pipe that never blocks.
void handleStopSignal(int /*signal*/) {
    const int savedError = errno;
    const char mark = 0;
    [[maybe_unused]] const ssize_t ignored = write(stopWriteEnd.load(), &mark, 1);
    errno = savedError;
}

void setHandler(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void allowSignals() {
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGTERM);
    sigaddset(&wanted, SIGINT);
    sigprocmask(SIG_UNBLOCK, &wanted, nullptr);
}

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

/// Numbers of the open descriptors above the standard ones, less the one that lists them.
std::vector<int> extraDescriptors() {
    const std::unique_ptr<DIR, FolderCloser> folder(opendir("/proc/self/fd"));
    std::vector<int> numbers;
    if (folder == nullptr) return numbers;
    while (const dirent* entry = readdir(folder.get())) {
        int number = -1;
        std::from_chars(entry->d_name, entry->d_name + std::strlen(entry->d_name), number);
        if (number > STDERR_FILENO && number != dirfd(folder.get())) numbers.push_back(number);
    }
    return numbers;
}

void detachStandardDescriptors() {
    const Descriptor null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null.valid()) return;
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null.get(), standard);
}

}  // namespace

void openStandardDescriptors() {
    int number = open("/dev/null", O_RDWR);
    while (number >= 0 && number <= STDERR_FILENO) number = open("/dev/null", O_RDWR);
    if (number >= 0) close(number);
}

void closeInheritedDescriptors() {
    for (const int number : extraDescriptors()) close(number);
}

Result<bool> goToBackground() {
    const pid_t child = fork();
    if (child < 0) return systemFailure("fork()");
    if (child > 0) return false;
    setsid();
    if (chdir("/") != 0) return systemFailure("chdir()");
    detachStandardDescriptors();
    return true;
}

Result<StopSignals> StopSignals::install() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return systemFailure("pipe()");
    stopWriteEnd = ends[1];
    setHandler(SIGTERM, handleStopSignal);
    setHandler(SIGINT, handleStopSignal);
    setHandler(SIGPIPE, SIG_IGN);
    allowSignals();
    return StopSignals(Descriptor(ends[0]), Descriptor(ends[1]));
}

}  // namespace sim
