#include "app/ShutdownSignals.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <string_view>

#include "app/BrokenPipesIgnored.h"
#include "app/EventRing.h"
#include "app/FlasherOptions.h"
#include "app/SignalBlock.h"
#include "sw_drv/RTkernel/linux/WriteAll.h"

namespace CANFlasher {

namespace {

/// "Dunmallow: handleShutDownSignal( %i )\n" without printf, which the handler may have interrupted.
void printSignalLine(int signal) {
    constexpr std::string_view kBefore = "Dunmallow: handleShutDownSignal( ";
    constexpr std::string_view kAfter = " )\n";
    constexpr std::size_t kDigits = 11;
    std::array<char, kBefore.size() + kDigits + kAfter.size()> line{};
    char* end = std::copy(kBefore.begin(), kBefore.end(), line.data());
    end = std::to_chars(end, end + kDigits, signal).ptr;
    end = std::copy(kAfter.begin(), kAfter.end(), end);
    const BrokenPipesIgnored whileWriting;
    threadfunc::writeAll(STDOUT_FILENO, {line.data(), static_cast<std::size_t>(end - line.data())});
}

/// No SA_RESTART: a wait that may not end early repeats by itself. The mask is empty, either signal may interrupt the
/// other's handler.
bool installHandler(int signal) {
    struct sigaction action {};
    action.sa_handler = handleShutDownSignal;
    sigemptyset(&action.sa_mask);
    return sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

bool prepareShutdown() {
    const SignalBlock untilTheRingIsReady;
    if (!installHandler(SIGINT) || !installHandler(SIGTERM)) {
        std::perror("setting up termination signal");
        return false;
    }
    initEvents();
    setEventHandler(shutDownEvent);
    return true;
}

void handleShutDownSignal(int signal) {
    const int interruptedErrno = errno;
    postEvent(0, EvtShutdown, 0);
    printSignalLine(signal);
    errno = interruptedErrno;
}

void shutDownEvent(std::uint32_t id, std::uint32_t /*parameter*/) {
    if (id == EvtShutdown) flasherOptions.quitRequested = true;
}

}  // namespace CANFlasher
