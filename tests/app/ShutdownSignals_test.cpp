#include "app/ShutdownSignals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "app/EventRing.h"
#include "app/FlasherOptions.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"

using namespace CANFlasher;

namespace {

int refusedSignal = 0;        // sigaction of this signal fails
int signalOnceInstalled = 0;  // raised as soon as its handler stands

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {
int __real_sigaction(int signal, const struct sigaction* action, struct sigaction* old);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old) {
    if (action != nullptr && signal == refusedSignal) {
        errno = EINVAL;
        return -1;
    }
    const int result = __real_sigaction(signal, action, old);
    if (action != nullptr && signal == signalOnceInstalled) raise(signal);
    return result;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class ShutdownSignals : public testing::Test {
protected:
    ShutdownSignals() {
        sigaction(SIGINT, nullptr, &oldInterrupt);
        sigaction(SIGTERM, nullptr, &oldTerminate);
        flasherOptions.quitRequested = false;
        initEvents();
    }
    ~ShutdownSignals() override {
        refusedSignal = 0;
        signalOnceInstalled = 0;
        sigaction(SIGINT, &oldInterrupt, nullptr);
        sigaction(SIGTERM, &oldTerminate, nullptr);
        setEventHandler(nullptr);
        initEvents();
        flasherOptions.quitRequested = false;
    }
    ShutdownSignals(const ShutdownSignals&) = delete;
    ShutdownSignals& operator=(const ShutdownSignals&) = delete;

    testsupport::CapturedOutput standardOutput{STDOUT_FILENO};
    testsupport::CapturedOutput standardError{STDERR_FILENO};

private:
    struct sigaction oldInterrupt {};
    struct sigaction oldTerminate {};
};

TEST_F(ShutdownSignals, InterruptReachesTheSettingsThroughTheRing) {
    ASSERT_TRUE(prepareShutdown());
    raise(SIGINT);
    EXPECT_FALSE(flasherOptions.quitRequested) << "the handler only posts";
    EXPECT_EQ(standardOutput.text(), "Dunmallow: handleShutDownSignal( 2 )\n");
    EXPECT_EQ(dispatchEvent(), 1U);
    EXPECT_TRUE(flasherOptions.quitRequested);
    CurrentEvent current;
    EXPECT_EQ(currentEvent(current), 1U);
    EXPECT_EQ(current.id, 21U);
    EXPECT_EQ(current.parameter, 0U);
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(ShutdownSignals, TerminateDoesTheSame) {
    ASSERT_TRUE(prepareShutdown());
    raise(SIGTERM);
    EXPECT_EQ(standardOutput.text(), "Dunmallow: handleShutDownSignal( 15 )\n");
    EXPECT_EQ(dispatchEvent(), 1U);
    EXPECT_TRUE(flasherOptions.quitRequested);
}

TEST_F(ShutdownSignals, OtherEventsAreIgnored) {
    ASSERT_TRUE(prepareShutdown());
    for (const std::uint32_t id : {1U, 20U, 22U, 0xFFFFFFFFU}) {
        EXPECT_EQ(postEvent(0, id, 21), 1U);
        EXPECT_EQ(dispatchEvent(), 1U);
        EXPECT_FALSE(flasherOptions.quitRequested) << id;
    }
}

TEST_F(ShutdownSignals, TheTwoHundredAndFirstSignalIsDropped) {
    ASSERT_TRUE(prepareShutdown());
    for (int i = 0; i < 201; ++i) raise(i % 2 == 0 ? SIGINT : SIGTERM);
    int taken = 0;
    while (dispatchEvent() == 1) ++taken;
    EXPECT_EQ(taken, 200);
    const std::string text = standardOutput.text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 201) << "each signal prints its line all the same";
}

TEST_F(ShutdownSignals, HandlersHaveAnEmptyMaskAndNoFlags) {
    // The C library adds a flag of its own, so each is asked for.
    constexpr unsigned kFlags[] = {SA_RESTART, SA_SIGINFO, SA_NODEFER, static_cast<unsigned>(SA_RESETHAND), SA_ONSTACK};
    ASSERT_TRUE(prepareShutdown());
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, &handleShutDownSignal);
        const auto flags = static_cast<unsigned>(action.sa_flags);
        for (const auto flag : kFlags) EXPECT_EQ(flags & flag, 0U) << flag;
        for (int other = 1; other < 32; ++other) EXPECT_EQ(sigismember(&action.sa_mask, other), 0) << other;
    }
}

TEST_F(ShutdownSignals, PreparingForgetsOldEvents) {
    postEvent(0, EvtShutdown, 0);
    ASSERT_TRUE(prepareShutdown());
    EXPECT_EQ(dispatchEvent(), 0U);
}

TEST_F(ShutdownSignals, PreparingLeavesTheSignalMask) {
    sigset_t before;
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    ASSERT_TRUE(prepareShutdown());
    handleShutDownSignal(SIGINT);
    dispatchEvent();
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < 32; ++signal)
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
}

TEST_F(ShutdownSignals, AFailureForInterruptIsReportedAndNothingElseIsDone) {
    refusedSignal = SIGINT;
    struct sigaction before {};
    struct sigaction after {};
    sigaction(SIGTERM, nullptr, &before);
    EXPECT_FALSE(prepareShutdown());
    sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler) << "interrupt comes first";
    EXPECT_EQ(standardError.text(), "setting up termination signal: Invalid argument\n");
    EXPECT_EQ(standardOutput.text(), "");
}

TEST_F(ShutdownSignals, AFailureForTerminateIsReported) {
    refusedSignal = SIGTERM;
    EXPECT_FALSE(prepareShutdown());
    EXPECT_EQ(standardError.text(), "setting up termination signal: Invalid argument\n");
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    EXPECT_EQ(action.sa_handler, &handleShutDownSignal);
}

// The ring is emptied after the handlers stand. A signal between the two was lost, and the run could not be ended.
TEST_F(ShutdownSignals, ASignalWhilePreparingIsNotLost) {
    for (const int signal : {SIGINT, SIGTERM}) {
        flasherOptions.quitRequested = false;
        signalOnceInstalled = signal;
        ASSERT_TRUE(prepareShutdown());
        EXPECT_EQ(dispatchEvent(), 1U) << signal;
        EXPECT_TRUE(flasherOptions.quitRequested);
    }
}

TEST_F(ShutdownSignals, TheHandlerKeepsErrno) {
    const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    close(STDOUT_FILENO);  // the write fails
    errno = ENOTTY;
    handleShutDownSignal(SIGINT);
    const int after = errno;
    dup2(saved, STDOUT_FILENO);
    close(saved);
    EXPECT_EQ(after, ENOTTY);
    EXPECT_EQ(eventWaiting(), 1U);
}

int brokenPipes = 0;
void countBrokenPipe(int) { ++brokenPipes; }

class GoneReader : public ShutdownSignals, public testing::WithParamInterface<bool> {};

// A run whose reader had gone was ended by its own signal line. ThreadSanitizer blocks all signals in a handler.
TEST_P(GoneReader, RaisesNoSignalAndTheOldActionComesBack) {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    if (GetParam()) pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    struct sigaction counting {};
    struct sigaction before {};
    counting.sa_handler = countBrokenPipe;
    sigaction(SIGPIPE, &counting, &before);
    brokenPipes = 0;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    handleShutDownSignal(SIGTERM);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(ends[1]);
    pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
    EXPECT_EQ(brokenPipes, 0);
    struct sigaction after {};
    sigaction(SIGPIPE, &before, &after);
    EXPECT_EQ(after.sa_handler, &countBrokenPipe);
    EXPECT_EQ(eventWaiting(), 1U) << "the event is posted all the same";
}

INSTANTIATE_TEST_SUITE_P(Blocked, GoneReader, testing::Bool());

TEST_F(ShutdownSignals, TheLineIsOneWrite) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(ends[0], STDOUT_FILENO);
    handleShutDownSignal(2147483647);
    handleShutDownSignal(-2147483647 - 1);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(ends[0]);
    std::string message(200, '\0');
    message.resize(static_cast<std::size_t>(recv(ends[1], message.data(), message.size(), 0)));
    EXPECT_EQ(message, "Dunmallow: handleShutDownSignal( 2147483647 )\n");
    message.resize(200);
    message.resize(static_cast<std::size_t>(recv(ends[1], message.data(), message.size(), 0)));
    EXPECT_EQ(message, "Dunmallow: handleShutDownSignal( -2147483648 )\n");
    close(ends[1]);
}

// The handler once used printf, and so locked and allocated inside whatever it had interrupted.
TEST_F(ShutdownSignals, MayInterruptPrintingAndAllocating) {
    ASSERT_TRUE(prepareShutdown());
    std::atomic<int> sent{0};
    std::thread sender([&sent, target = pthread_self()] {
        for (; sent < 2000; ++sent) {
            pthread_kill(target, sent % 2 == 0 ? SIGINT : SIGTERM);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    const bool ended = testsupport::waitFor([&] {
        for (int i = 0; i < 100; ++i) {
            std::printf("%s", std::string(static_cast<std::size_t>(100 + i), ' ').c_str());
            dispatchEvent();
        }
        std::fflush(stdout);
        return sent == 2000;
    });
    sender.join();
    EXPECT_TRUE(ended);
    while (dispatchEvent() == 1) {
    }
    EXPECT_TRUE(flasherOptions.quitRequested);
    EXPECT_NE(standardOutput.text().find("Dunmallow: handleShutDownSignal( 2 )\n"), std::string::npos);
}

}  // namespace
