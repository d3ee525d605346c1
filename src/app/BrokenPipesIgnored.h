#pragma once
/// Lets a write to a pipe that nobody reads any more fail instead of ending the process.

#include <csignal>

namespace CANFlasher {

/// Ignores SIGPIPE for the life of the object. No longer, for a server that is started would inherit it. The setting is
/// the process's: for the main thread and the signal handler, which runs on the main thread alone since all others
/// block its signals; nested in itself it is undone in order.
class BrokenPipesIgnored {
public:
    BrokenPipesIgnored() {
        ignore.sa_handler = SIG_IGN;
        sigemptyset(&ignore.sa_mask);
        changed = sigaction(SIGPIPE, &ignore, &previous) == 0;
    }
    ~BrokenPipesIgnored() {
        if (!changed) return;
        sigaction(SIGPIPE, &ignore, nullptr);  // again: drops one that came while it was blocked
        sigaction(SIGPIPE, &previous, nullptr);
    }
    BrokenPipesIgnored(const BrokenPipesIgnored&) = delete;
    BrokenPipesIgnored& operator=(const BrokenPipesIgnored&) = delete;

private:
    struct sigaction ignore {};
    struct sigaction previous {};
    bool changed = false;
};

}  // namespace CANFlasher
