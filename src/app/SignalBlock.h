#pragma once
/// Keeps the two shutdown signals from interrupting a few lines.

#include <csignal>

namespace CANFlasher {

/// Blocks SIGINT and SIGTERM on the calling thread for the life of the object, then restores the mask that was there.
/// A signal that comes meanwhile is delivered at the end. May be nested, and used in a handler of either signal.
class SignalBlock {
public:
    SignalBlock() {
        sigset_t shutdownSignals;
        sigemptyset(&shutdownSignals);
        sigaddset(&shutdownSignals, SIGINT);
        sigaddset(&shutdownSignals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &shutdownSignals, &previous);
    }
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t previous{};
};

}  // namespace CANFlasher
