#pragma once
/// Makes the n-th fallible call of a process fail: system calls and C library calls that the linker's --wrap leads to
/// WrappedCalls.cpp, and allocations.

#include <atomic>
#include <cstdint>

namespace faults {

/// What happens at the chosen call.
enum class Kind : std::uint8_t {
    error,        ///< it fails as its row in WrappedCalls.cpp says
    shortCount,   ///< a read, write, recv or send moves one byte only; other calls are not counted
    interrupted,  ///< a call that a signal can interrupt fails with EINTR; other calls are not counted
    delay,        ///< it takes 3 ms longer
};

/// What a call allows besides failing and taking longer.
enum class Trait : std::uint8_t {
    none,
    waits,
    countsAndWaits,
    sends,      ///< counts and waits; a short count is a failure, since signals are blocked where it is called
    onlyWaits,  ///< cannot fail with the arguments that the code gives it, but be interrupted
};

/// Which calls are struck, counted from 1: `first`, also `second` unless 0, and with `forever` all from `first` on.
struct Plan {
    Kind kind = Kind::error;
    long first = 0;
    long second = 0;
    bool forever = false;
};

/// What came of it. Lies in memory that the driver shares with the run.
struct Tally {
    std::atomic<long> calls{0};
    std::atomic<long> struck{0};
    std::atomic<const char*> lastStruck{""};  // a literal: the same address in a forked process
    std::atomic<bool> failed{false};          ///< a call did not do what it is there for
    std::atomic<bool> outOfMemory{false};     ///< that was an allocation
};

/// Counts and strikes calls of all threads from now on, by `plan`.
void arm(const Plan& plan, Tally& tally);
void disarm();

/// True when a call has failed since `arm`: an operation that is refused may have its reason in that.
bool aCallFailed();
/// True when a call has failed, moved less than it was asked to, or was interrupted.
bool aCallStopped();

/// Calls of the thread that made it go through uncounted while it lives: the test's own.
class Pause {
public:
    Pause() { ++depth; }
    ~Pause() { --depth; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
    static bool active() { return depth != 0; }

private:
    static inline thread_local int depth = 0;
};

/// What a wrapped call does this time.
enum class Action : std::uint8_t { goOn, fail, moveOneByte, interrupt };
Action next(const char* call, Trait trait);

/// Answers `system` instead of the real one when set.
extern int (*onSystem)(const char* command);

}  // namespace faults
